// WGS-84 → GCJ-02 against published reference pairs of the standard conversion, with this system's
// fixed -0.000399° latitude correction applied on top; the China rectangle and its bounds.
#include <gtest/gtest.h>

#include <cstring>

#include "device/DatumConversion.h"

namespace quorvane {
namespace {

constexpr double kCorrection = 0.000399;

struct Reference {
    const char* source;
    double wgsLat, wgsLon, gcjLat, gcjLon;  // the standard conversion, without the correction
};

const Reference kReferences[] = {
    {"eviltransform test suite, Shanghai", 31.1774276, 121.5272106, 31.17530398364597, 121.531541859215},
    {"eviltransform test suite, Shenzhen", 22.543847, 113.912316, 22.540796131694766, 113.9171764808363},
    {"eviltransform test suite, Beijing", 39.911954, 116.377817, 39.91334545536069, 116.38404722455657},
    {"wandergis/coordtransform test/app.js (and hutool CoordinateUtilTest)", 39.915, 116.404, 39.91640428150164,
     116.41024449916938},
    {"geotool transform test (Jiaxing)", 30.6107779, 121.0917077, 30.608604331756705, 121.09626935575027},
    {"geoToolbox wgs84_to_gcj02 test", 40.0, 116.0, 40.001213650174, 116.006141221789},
    {"PositionUtilTest gps84_To_Gcj02 (Zhengzhou)", 34.829793, 113.647881, 34.8287280094783, 113.65396374215176},
};

TEST(DatumConversion, MatchesPublishedPairsWithTheLatitudeCorrection) {
    for (const auto& r : kReferences) {
        auto gcj = WGS84ConvertToGCJ02ForAMapView::transformFromWGSToGCJ({r.wgsLat, r.wgsLon});
        EXPECT_NEAR(gcj.latitude, r.gcjLat - kCorrection, 1e-6) << r.source;
        EXPECT_NEAR(gcj.longitude, r.gcjLon, 1e-6) << r.source;
    }
    // At the polynomial's origin its terms vanish, yet the offsets must not.
    auto origin = WGS84ConvertToGCJ02ForAMapView::transformFromWGSToGCJ({35.0, 105.0});
    EXPECT_NEAR(origin.latitude, 34.998699632, 1e-6);
    EXPECT_NEAR(origin.longitude, 105.003286241, 1e-6);
}

bool sameBits(double x, double y) { return std::memcmp(&x, &y, sizeof x) == 0; }

TEST(DatumConversion, BoundsCountAsInsideAndPointsPastThemComeBackBitForBit) {
    using W = WGS84ConvertToGCJ02ForAMapView;
    // Each bound itself is inside and converted; a step past it is outside and left alone.
    const std::pair<LocationCoordinate2D, LocationCoordinate2D> bounds[] = {
        {{35.0, 72.004}, {35.0, 72.0039}}, {{35.0, 137.8347}, {35.0, 137.8348}},
        {{0.8293, 105.0}, {0.8292, 105.0}}, {{55.8271, 105.0}, {55.8272, 105.0}}};
    for (const auto& [inside, outside] : bounds) {
        EXPECT_FALSE(W::isLocationOutOfChina(inside)) << inside.latitude << "," << inside.longitude;
        EXPECT_TRUE(W::isLocationOutOfChina(outside)) << outside.latitude << "," << outside.longitude;
        auto converted = W::transformFromWGSToGCJ(inside);
        EXPECT_TRUE(converted.latitude != inside.latitude && converted.longitude != inside.longitude);
        auto kept = W::transformFromWGSToGCJ(outside);
        EXPECT_TRUE(sameBits(kept.latitude, outside.latitude) && sameBits(kept.longitude, outside.longitude));
    }
}

}  // namespace
}  // namespace quorvane
