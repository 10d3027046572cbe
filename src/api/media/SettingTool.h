#pragma once
// Settings of the album picker: a selection maximum and the one kind of asset shown.
#include "platform/media_picker.h"

namespace quorvane {

class SettingTool {
public:
    static platform::AlbumPickerSettings getSettingWithMax(int max);       // images only
    static platform::AlbumPickerSettings getVideoSettingWithMax(int max);  // videos only
};

}  // namespace quorvane
