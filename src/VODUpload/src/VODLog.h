#pragma once
// The engine's debug log: silent unless the object-storage client's log switch is on
// (oss::OSSLog::enableLog). Every line names the engine file it comes from:
// "VODUpload/src/VODUploadClient [Debug]: start called.".
#include <string_view>

namespace quorvane {

bool vodLogEnabled();
// "<source> [Debug]: <message>", when logging is on.
void vodLogDebug(std::string_view source, std::string_view message);
// "<source> [Error]: <message>", when logging is on.
void vodLogError(std::string_view source, std::string_view message);

}  // namespace quorvane
