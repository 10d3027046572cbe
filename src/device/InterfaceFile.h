#pragma once
// Overlay layouts kept as interface files in the resource bundles (a small JSON form of a nib):
// the file's top-level view is the owner itself, its subviews are built inside it, and views with
// an "outlet" name are handed back so the owner can point at them.
//
//   {"backgroundColor": [r, g, b, a], "subviews": [
//      {"class": "View" | "Label" | "Button", "frame": [x, y, w, h], "centered": true,
//       "backgroundColor": [...], "text": "...", "title": "...", "outlet": "name", "action": "name",
//       "subviews": [...]}]}
//
// "centered" places the view in the middle of its parent's frame; a button's "action" names the
// owner's operation its taps go to.
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "platform/view.h"

namespace quorvane {

using InterfaceOutlets = std::map<std::string, std::shared_ptr<platform::View>>;
using InterfaceActions = std::map<std::string, platform::Button::Action>;

// Builds `name` (a path under the resource directory, without ".json") into `owner`, whose frame
// must already be set. Nullopt when the file is missing or malformed: that is logged as
// "Could not load the interface file <name>" and the owner is left as it was.
std::optional<InterfaceOutlets> loadInterfaceFile(const std::string& name, platform::View& owner,
                                                  const InterfaceActions& actions);

}  // namespace quorvane
