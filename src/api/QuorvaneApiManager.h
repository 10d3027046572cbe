#pragma once
// The host's single entry point to the native capabilities. Nearly every operation is a class
// operation that answers through a success and a fail callback, never by return value.
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "foundation/HttpSessionManager.h"
#include "foundation/error.h"
#include "foundation/sandbox_paths.h"
#include "foundation/value.h"
#include "platform/image.h"
#include "platform/presenter.h"
#include "upload_bridge/ApiOSSUploadTool.h"
#include "upload_bridge/QuorvaneErrors.h"

namespace quorvane {

// A result: a dictionary, an array of dictionaries, or a string.
using SuccessCallback = std::function<void(const Value& result)>;
// An error word (string) or a {"code", "message"} dictionary.
using FailCallback = std::function<void(const Value& failure)>;
// The screen a request presents its user interface from.
using Controller = std::shared_ptr<platform::Presenter>;
using AlertCallback = std::function<void()>;
// The share sheet's outcome: the chosen activity type (absent when dismissed) and whether it completed.
using ShareCallback = std::function<void(const std::optional<std::string>& activityType, bool completed)>;

// Media types of the multipart upload: the file part's content type.
enum MediaType { MediaTypeImage = 0, MediaTypeVideo = 1, MediaTypeAudio = 2 };

using foundation::kMediaDirectory;
inline constexpr const char* kWeChatURL = "wechat:";

class LocationTool;

class QuorvaneApiManager {
public:
    // --- Operations of the device, capture and upload services (declared with those services) ---
    // init: creates the instance's LocationTool (locationTool).
    // getLocationWithController(controller, successCallback, failCallback): one location fix, 11-key dictionary.
    // Media capture: files under "media" with their size and dimensions. `compressed` exactly 1 asks
    // for compression. Fail: "NoCameraPermission" / "NoAlbumPermission" when refused again, "Cancel".
    // A picture or movie that cannot be read is logged and left out of the array.
    // Camera photo: an array holding one 5-key image dictionary (JPEG 0.8 when compressed, else 1.0).
    static void getImageByCameraCompressed(int compressed, Controller controller, SuccessCallback successCallback,
                                           FailCallback failCallback);
    // Album photos, at most `count`: image dictionaries in selection order (also an empty array).
    static void getImageByAlbumCompressed(int compressed, int count, Controller controller,
                                          SuccessCallback successCallback, FailCallback failCallback);
    // Camera video of at most `maxDuration` seconds: an array holding one 6-key video dictionary.
    static void getVideoByCameraCompressed(int compressed, int maxDuration, Controller controller,
                                           SuccessCallback successCallback, FailCallback failCallback);
    // Album videos, at most `count`, none longer than `maxDuration` (refused when selected): exported
    // one at a time on the serial queue "com.brenlow.platform". No callback when every export fails.
    static void getVideoByAlbumCompressed(int compressed, int count, int maxDuration, Controller controller,
                                          SuccessCallback successCallback, FailCallback failCallback);
    static void startAudioRecord(int maxSeconds, Controller controller, SuccessCallback successCallback, FailCallback failCallback);
    static void scanWithController(Controller controller, SuccessCallback successCallback, FailCallback failCallback);
    // A size in points (CGSize).
    struct Size {
        double width = 0;
        double height = 0;
    };
    // The image redrawn at exactly `size` (one pixel per point, fractions rounded up); null when it
    // cannot be decoded.
    static platform::ImagePtr scaleToSize(const platform::ImagePtr& image, Size size);

    // --- Upload, share and save commands ---
    // Multipart POST of the "media" file named by "filePath" to "url" with "formData" and "header";
    // success gets the server's JSON answer (the local file is then deleted), fail "FileNotExists"
    // or "RequestFailed".
    static void uploadFile(const Value& params, Controller controller, SuccessCallback successCallback,
                           FailCallback failCallback);
    // "type" "image": the files to object storage; "video": the first file to VOD by ticket; any
    // other type: nothing. The controller is not used.
    static void OSSUploadFile(const Value& params, Controller controller, SuccessCallback successCallback,
                              FailCallback failCallback);
    // The services OSSUploadFile talks to (the enterprise API, the video and log services): the host
    // builds them once and installs them before its first upload; until then, the system's own. The
    // façade's commands are class operations, so this is the one place such a setting can live.
    static void setUploadServices(ApiOSSUploadTool::Config services);
    // The system share sheet with "title", the image at "logo" and the link "url".
    static void shareUniversal(const Value& params, Controller controller, ShareCallback callback);
    // Downloads the image and stores it in the photo library; the outcome is a 2-second HUD.
    static void saveImage(const std::optional<std::string>& imageUrl, Controller withController);
    // Synchronous download and decode on the calling thread; null on any failure.
    static platform::ImagePtr getImageFromUrlStr(const std::optional<std::string>& url);

    // --- Vibration (system sound 4095, played back to back until stopped) ---
    static void vibrateWithDuration(float seconds);
    static void startVibrate();
    static void stopVibrate();
    // Runs `execute` once after `seconds`, on a new concurrent queue "my.concurrent.queue".
    static void GCDDelay(float seconds, std::function<void()> execute);

    // --- Clipboard, messaging app, settings ---
    static void sendMessage(const std::optional<std::string>& message, Controller withController);
    static void copyMessage(const std::optional<std::string>& message, const std::optional<std::string>& alert,
                            Controller withController);
    static void openWeChat(Controller controller);
    static bool isWeChatInstalled();
    static void jumpToSetting(Controller controller);

    // --- System facts ---
    // 9 keys: brand, platform, system, model, deviceId, windowWidth, windowHeight, screenWidth, screenHeight.
    static void getSystemInfoWithSuccessCallback(SuccessCallback successCallback, FailCallback failCallback);
    // Local wall-clock milliseconds since 1970, counted as if local time were UTC.
    static std::string getTimestamp();

    // --- Alerts and HUDs ---
    static void presentAlertControllerWithController(Controller controller, const std::optional<std::string>& title,
                                                     const std::optional<std::string>& message,
                                                     const std::optional<std::string>& leftContent,
                                                     const std::optional<std::string>& rightContent,
                                                     AlertCallback leftCallback, AlertCallback rightCallback);
    static std::shared_ptr<platform::Hud> showMBProgressHUDIndeterminateWithContent(const std::string& content,
                                                                                    Controller controller);
    static void hideMBProgressHUD(const std::shared_ptr<platform::Hud>& hud);
    static void showMBProgressHUDWithContent(const std::string& content, double afterDelay, Controller controller);

    // --- Temporary files (under the process temporary directory) ---
    static void deleteAllMediaFiles();
    // Writes `data` to a fresh uniquely named file; returns the path whatever the write did.
    static std::string saveFile(const std::string& data, const std::string& toSandboxTempWithMiddleDir,
                                const std::string& fileSuffix);
    // Temporary directory [/ middleDir] / "name.suffix" (unique name when `fileName` is ""); creates the directory.
    static std::string getPathFromSandboxTempWithMiddleDir(const std::string& middleDir, const std::string& fileName,
                                                           const std::string& fileSuffix);
    // Temporary directory [/ middleDir] / fileName, without touching the disk.
    static std::string getfilePathFromSandboxTmpWithMiddleDir(const std::string& middleDir, const std::string& fileName);
    // Removes the file or directory (a path or a "file://" URL); errors are ignored.
    static void deleteSandboxFile(const std::string& fileURL);

    // --- HTTP ---
    static std::shared_ptr<HttpSessionManager> pubManager();
    // Multipart POST of one file part (by mediaType; none for other values) plus form fields.
    static void postRequestWithUrl(const std::string& url, const Value& requestParam, const std::string& data,
                                   const std::string& name, const std::string& fileName, int mediaType,
                                   const Value& header, ReponseData reponseData, ProgressCallback progress);

    // --- The instance and its location service ---
    // init: the façade owns one LocationTool.
    QuorvaneApiManager();
    const std::shared_ptr<LocationTool>& locationTool() const { return locationTool_; }
    void setLocationTool(std::shared_ptr<LocationTool> locationTool) { locationTool_ = std::move(locationTool); }
    // One position as the 11-key dictionary; without permission, the go-to-settings alert and
    // "no location permission". Does nothing without a LocationTool.
    void getLocationWithController(Controller controller, SuccessCallback successCallback, FailCallback failCallback);

private:
    std::shared_ptr<LocationTool> locationTool_;
};

}  // namespace quorvane
