#include "VODUpload/src/VodInfo.h"

#include "foundation/crypto.h"

namespace quorvane {
namespace {

const char* boolText(bool b) { return b ? "true" : "false"; }

// Appends pairs in order and stops for good at the first absent value: the service reads the
// notification as a prefix of this field list.
class PrefixObject {
public:
    template <typename T>
    PrefixObject& add(const char* key, const std::optional<T>& value) {
        if (!open_ || !value) {
            open_ = false;
            return *this;
        }
        object_[key] = *value;
        return *this;
    }
    PrefixObject& add(const char* key, Value value) {
        if (open_) object_[key] = std::move(value);
        return *this;
    }
    Value take() { return std::move(object_); }

private:
    Value object_ = Value::object();
    bool open_ = true;
};

}  // namespace

void VodInfo::setPriority(long long priority) {
    if (priority >= 1 && priority <= 10) priority_ = static_cast<int>(priority);
}

Value VodInfo::notificationValue() const {
    Value watermark = PrefixObject()
                          .add("IsShowWaterMark", Value(boolText(isShowWaterMark)))
                          .add("Priority", priority_)
                          .take();
    // Caller's user data wins; watermark settings only travel when there is none.
    Value user = (userData && !userData->empty()) ? Value(*userData) : std::move(watermark);
    Value inner = PrefixObject()
                      .add("Title", title)
                      .add("Description", desc)
                      .add("CateId", cateId)
                      .add("Tags", tags)
                      .add("UserData", std::move(user))
                      .add("CoverUrl", coverUrl)
                      .add("IsProcess", Value(boolText(isProcess)))
                      .take();
    Value root = Value::object();
    root["Vod"] = std::move(inner);
    return root;
}

std::string VodInfo::toJson() const {
    try {
        return foundation::base64Encode(notificationValue().dump());
    } catch (const std::exception&) {
        return {};  // text that is not UTF-8 cannot be serialised
    }
}

}  // namespace quorvane
