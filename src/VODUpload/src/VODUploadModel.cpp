#include "VODUpload/src/VODUploadModel.h"

namespace quorvane {

const char* const VODUploadSDKVersion = "1.6.5";

}  // namespace quorvane
