#include "device/InterfaceFile.h"

#include "device/QrScanStyle.h"
#include "foundation/log.h"
#include "foundation/temp_files.h"
#include "foundation/value.h"

namespace quorvane {
namespace {

bool numbers(const Value& value, std::size_t count) {
    if (!value.is_array() || value.size() != count) return false;
    for (const auto& n : value)
        if (!n.is_number()) return false;
    return true;
}

std::shared_ptr<platform::View> makeView(const std::string& kind) {
    if (kind == "View") return std::make_shared<platform::View>();
    if (kind == "Label") return std::make_shared<platform::Label>();
    if (kind == "Button") return std::make_shared<platform::Button>();
    return nullptr;
}

// Everything but the subviews; false when the description does not hold together.
bool describe(platform::View& view, const Value& spec, const platform::Rect& parent, const InterfaceActions& actions) {
    if (spec.contains("frame")) {
        if (!numbers(spec["frame"], 4)) return false;
        const Value& f = spec["frame"];
        platform::Rect frame{f[0].get<double>(), f[1].get<double>(), f[2].get<double>(), f[3].get<double>()};
        if (spec.value("centered", false)) {
            frame.x = (parent.width - frame.width) / 2;
            frame.y = (parent.height - frame.height) / 2;
        }
        view.setFrame(frame);
    }
    if (spec.contains("backgroundColor")) {
        if (!numbers(spec["backgroundColor"], 4)) return false;
        const Value& c = spec["backgroundColor"];
        view.setBackgroundColor({c[0].get<double>(), c[1].get<double>(), c[2].get<double>(), c[3].get<double>()});
    }
    if (auto* label = dynamic_cast<platform::Label*>(&view); label && spec.contains("text"))
        label->setText(spec.value("text", ""));
    if (auto* button = dynamic_cast<platform::Button*>(&view)) {
        if (spec.contains("title")) button->setTitle(spec.value("title", ""));
        if (spec.contains("action")) {
            auto action = actions.find(spec.value("action", ""));
            if (action == actions.end()) return false;
            button->setAction(action->second);
        }
    }
    return true;
}

bool build(platform::View& view, const Value& spec, const platform::Rect& parent, const InterfaceActions& actions,
           InterfaceOutlets& outlets) {
    if (!spec.is_object() || !describe(view, spec, parent, actions)) return false;
    if (!spec.contains("subviews")) return true;
    if (!spec["subviews"].is_array()) return false;
    for (const auto& childSpec : spec["subviews"]) {
        auto child = childSpec.is_object() ? makeView(childSpec.value("class", "")) : nullptr;
        if (!child || !build(*child, childSpec, view.frame(), actions, outlets)) return false;
        if (childSpec.contains("outlet")) outlets[childSpec.value("outlet", "")] = child;
        view.addSubview(child);
    }
    return true;
}

}  // namespace

std::optional<InterfaceOutlets> loadInterfaceFile(const std::string& name, platform::View& owner,
                                                  const InterfaceActions& actions) {
    auto text = foundation::readFile(scanResourceDirectory() + "/" + name + ".json");
    auto spec = text ? foundation::parseJson(*text) : std::nullopt;
    // Built off to the side first, so a malformed file leaves the owner untouched.
    auto scratch = std::make_shared<platform::View>();
    scratch->setFrame(owner.frame());
    InterfaceOutlets outlets;
    if (!spec || !build(*scratch, *spec, owner.frame(), actions, outlets)) {
        foundation::logLine("Could not load the interface file " + name);
        return std::nullopt;
    }
    owner.setBackgroundColor(scratch->backgroundColor());
    for (const auto& child : scratch->subviews()) owner.addSubview(child);
    return outlets;
}

}  // namespace quorvane
