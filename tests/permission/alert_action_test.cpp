// Alerts and action sheets on the modern and the legacy interfaces report the same indices; the
// legacy callbacks live in the side table exactly as long as their view.
#include "foundation/log.h"
#include "permission/LBXAlertAction.h"
#include "permission/LBXAlertCategories.h"
#include "permission_test_support.h"

namespace quorvane {
namespace {

using platform::AlertActionStyle;
using namespace testing;

class LBXAlertActionTest : public PrivacyTest {
protected:
    void TearDown() override {
        for (auto& view : platform::AlertView::visibleAlertViews()) view->tap(0);
        for (auto& sheet : platform::ActionSheet::visibleActionSheets()) sheet->cancel();
        PrivacyTest::TearDown();
    }
    LBXAlertAction::ChooseBlock chooser() {
        return [this](long index) { chosen.push_back(index); };
    }
    std::vector<AlertActionStyle> styles(const std::shared_ptr<platform::AlertController>& alert) {
        std::vector<AlertActionStyle> all;
        for (auto& action : alert->actions()) all.push_back(action.style);
        return all;
    }
    std::shared_ptr<platform::ActionSheet> onlySheet() {
        auto sheets = platform::ActionSheet::visibleActionSheets();
        return sheets.size() == 1 ? sheets[0] : nullptr;
    }
    std::vector<long> chosen;
};

TEST_F(LBXAlertActionTest, AlertIndicesOnTheModernAndTheLegacyInterface) {
    useSystemVersion("13.4");
    for (long i = 0; i < 3; ++i) {
        LBXAlertAction::showAlertWithTitle("t", "m", {"cancel", "one", "two"}, chooser());
        auto alert = presentedAlert();
        ASSERT_TRUE(alert);
        EXPECT_EQ(alert->preferredStyle(), platform::AlertControllerStyle::Alert);
        EXPECT_EQ(styles(alert), (std::vector{AlertActionStyle::Cancel, AlertActionStyle::Default, AlertActionStyle::Default}));
        alert->tap(static_cast<std::size_t>(i));
    }
    useSystemVersion("7.1");  // the legacy interface reports the same indices
    foundation::LogCapture log;
    for (long i = 0; i < 3; ++i) {
        LBXAlertAction::showAlertWithTitle("t", "m", {"cancel", "one", "two"}, chooser());
        auto views = platform::AlertView::visibleAlertViews();
        ASSERT_EQ(views.size(), 1u);
        EXPECT_EQ(views[0]->cancelButtonIndex(), 0);
        EXPECT_EQ(views[0]->buttonTitleAtIndex(2), "two");
        views[0]->tap(i);
    }
    EXPECT_EQ(chosen, (std::vector<long>{0, 1, 2, 0, 1, 2}));
    EXPECT_FALSE(presentedAlert());
    EXPECT_TRUE(log.contains("buttonTitle:one"));
    EXPECT_TRUE(log.contains("buttonTitle:two"));
}

TEST_F(LBXAlertActionTest, ActionSheetIndicesOnTheModernAndTheLegacyInterface) {
    useSystemVersion("8.0");
    LBXAlertAction::showActionSheetWithTitle("t", "m", "cancel", "delete", {"other"}, chooser());
    auto sheet = presentedAlert();
    ASSERT_TRUE(sheet);
    EXPECT_EQ(sheet->preferredStyle(), platform::AlertControllerStyle::ActionSheet);
    EXPECT_EQ(styles(sheet), (std::vector{AlertActionStyle::Cancel, AlertActionStyle::Destructive, AlertActionStyle::Default}));
    sheet->tap("other");
    LBXAlertAction::showActionSheetWithTitle("t", "m", "cancel", "delete", {"other"}, chooser());
    presentedAlert()->tap("delete");

    // Styles go by position: without a cancel title the destructive one is styled as cancel.
    LBXAlertAction::showActionSheetWithTitle("t", "m", std::nullopt, "delete", {"a", "b"}, chooser());
    sheet = presentedAlert();
    EXPECT_EQ(styles(sheet), (std::vector{AlertActionStyle::Cancel, AlertActionStyle::Destructive, AlertActionStyle::Default}));
    EXPECT_EQ(sheet->actions()[0].title, "delete");
    sheet->tap("delete");

    useSystemVersion("7.0");  // the legacy interface reports the same indices
    for (const std::string title : {"cancel", "delete", "other"}) {
        LBXAlertAction::showActionSheetWithTitle("t", "m", "cancel", "delete", {"other"}, chooser());
        auto sheet = onlySheet();
        ASSERT_TRUE(sheet);
        EXPECT_EQ(sheet->shownInView(), root);
        for (long k = 0; k < sheet->numberOfButtons(); ++k)
            if (sheet->buttonTitleAtIndex(k) == title) sheet->tap(k);
    }
    // Without a cancel button the sheet's last button still maps to 0.
    LBXAlertAction::showActionSheetWithTitle("t", "m", std::nullopt, std::nullopt, {"a", "b"}, chooser());
    onlySheet()->tap(1);
    // Modern: other, delete, then delete styled as cancel; legacy: cancel, delete, other, then the last button.
    EXPECT_EQ(chosen, (std::vector<long>{2, 1, 0, 0, 1, 2, 0}));
}

TEST_F(LBXAlertActionTest, LegacySheetRefusesNineOtherTitles) {
    useSystemVersion("6.1");
    std::vector<std::string> titles = {"1", "2", "3", "4", "5", "6", "7", "8"};
    LBXAlertAction::showActionSheetWithTitle("t", "m", "cancel", std::nullopt, titles, chooser());
    ASSERT_TRUE(onlySheet());
    onlySheet()->cancel();
    titles.push_back("9");
    LBXAlertAction::showActionSheetWithTitle("t", "m", "cancel", std::nullopt, titles, chooser());
    EXPECT_TRUE(platform::ActionSheet::visibleActionSheets().empty());
    EXPECT_FALSE(presentedAlert());
    EXPECT_TRUE(chosen.empty());
}

TEST_F(LBXAlertActionTest, SideTableReleasesCallbacksWithTheirOwner) {
    auto baseline = platform::associatedObjectCount();
    auto sentinel = std::make_shared<int>(0);
    std::weak_ptr<int> watch = sentinel;
    {
        platform::AlertView view("t", "m", {}, "ok");
        UIAlertView_LBXAlertAction::setBlock(view, [sentinel](long) {});
        EXPECT_EQ(platform::associatedObjectCount(), baseline + 1);
        EXPECT_TRUE(UIAlertView_LBXAlertAction::block(view));
    }
    sentinel.reset();
    EXPECT_TRUE(watch.expired());  // the view went without a tap: its callback went with it
    EXPECT_EQ(platform::associatedObjectCount(), baseline);

    auto held = std::make_shared<int>(0);
    watch = held;
    auto sheet = std::make_shared<platform::ActionSheet>("t", std::weak_ptr<platform::ActionSheetDelegate>(), "cancel",
                                                         std::nullopt, std::vector<std::string>{"a"});
    std::string title;
    UIActionSheet_LBXAlertAction::showInView(*sheet, root, [held, &title](long, const std::string& t) { title = t; });
    held.reset();
    std::weak_ptr<platform::ActionSheet> sheetWatch = sheet;
    sheet.reset();  // the screen holds it while shown
    EXPECT_FALSE(watch.expired());
    platform::ActionSheet::visibleActionSheets()[0]->tap(0);
    EXPECT_EQ(title, "a");
    EXPECT_TRUE(sheetWatch.expired());
    EXPECT_TRUE(watch.expired());
    EXPECT_EQ(platform::associatedObjectCount(), baseline);
}

TEST_F(LBXAlertActionTest, SetBlockReplacesAndTapDropsTheBlock) {
    auto view = std::make_shared<platform::AlertView>("t", "m", std::weak_ptr<platform::AlertViewDelegate>(), "ok");
    int first = 0, second = 0;
    UIAlertView_LBXAlertAction::setBlock(*view, [&](long) { ++first; });
    UIAlertView_LBXAlertAction::showWithBlock(*view, [&](long) { ++second; });
    view->tap(0);
    EXPECT_EQ(first, 0);
    EXPECT_EQ(second, 1);
    EXPECT_FALSE(UIAlertView_LBXAlertAction::block(*view));
    EXPECT_EQ(UIAlertController_supportedInterfaceOrientations::supportedInterfaceOrientations(
                  platform::AlertController("t", "m", platform::AlertControllerStyle::Alert)),
              2);
}

}  // namespace
}  // namespace quorvane
