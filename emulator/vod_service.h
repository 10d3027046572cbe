#pragma once
// VOD OpenAPI: shared pieces of the action handlers.
#include <map>
#include <string>

#include "emulator/emulator_impl.h"

namespace quorvane::emulator {

using Params = std::map<std::string, std::string>;

void vodAnswer(Exchange& ex, const Value& body);
void vodError(Exchange& ex, int status, const std::string& code, const std::string& message);
// Answers MissingParameter and returns nullopt when `name` is absent or empty.
std::optional<std::string> required(Exchange& ex, const Params& params, const std::string& name);
Value paramsToJson(const Pairs& pairs);

void createUploadVideo(Exchange& ex, const Params& params, const Pairs& pairs);
void refreshUploadVideo(Exchange& ex, const Params& params);
void createUploadImage(Exchange& ex, const Params& params, const Pairs& pairs);
void serveUploadProgress(Exchange& ex);  // the form-encoded POST actions

}  // namespace quorvane::emulator
