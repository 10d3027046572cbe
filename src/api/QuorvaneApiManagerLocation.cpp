// The façade's location request.
#include "api/QuorvaneApiManager.h"
#include "device/LocationTool.h"

namespace quorvane {

QuorvaneApiManager::QuorvaneApiManager() : locationTool_(std::make_shared<LocationTool>()) {}

void QuorvaneApiManager::getLocationWithController(Controller controller, SuccessCallback successCallback,
                                                   FailCallback failCallback) {
    if (!locationTool_) return;
    locationTool_->getLocationInfo([controller, successCallback, failCallback](const LocationInfo& info) {
        if (!info.authorization) {
            jumpToSetting(controller);
            if (failCallback) failCallback(kErrorWordNoLocationPermission);
            return;
        }
        if (!successCallback) return;
        successCallback(Value{{"methodName", "getLocation"},
                              {"latitude", info.latitude},
                              {"longitude", info.longitude},
                              {"countryCode", info.ISOcountryCode},
                              {"country", info.country},
                              {"province", info.province},
                              {"city", info.city},
                              {"district", info.district},
                              {"street", info.street},
                              {"place", info.place},
                              {"address", info.address}});
    });
}

}  // namespace quorvane
