#include "api/media/SettingTool.h"

namespace quorvane {

platform::AlbumPickerSettings SettingTool::getSettingWithMax(int max) {
    return {max, {platform::AssetMediaType::Image}};
}

platform::AlbumPickerSettings SettingTool::getVideoSettingWithMax(int max) {
    return {max, {platform::AssetMediaType::Video}};
}

}  // namespace quorvane
