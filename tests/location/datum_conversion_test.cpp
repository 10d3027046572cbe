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
}

TEST(DatumConversion, OffsetsAreNotZeroAtThePolynomialOrigin) {
    auto gcj = WGS84ConvertToGCJ02ForAMapView::transformFromWGSToGCJ({35.0, 105.0});
    EXPECT_NEAR(gcj.latitude, 34.998699632, 1e-6);
    EXPECT_NEAR(gcj.longitude, 105.003286241, 1e-6);
    EXPECT_DOUBLE_EQ(a, 6378245.0);
    EXPECT_DOUBLE_EQ(ee, 0.006693421622965943);
    EXPECT_DOUBLE_EQ(pi, 3.141592653589793);
}

bool sameBits(double x, double y) { return std::memcmp(&x, &y, sizeof x) == 0; }

TEST(DatumConversion, PointsOutsideChinaComeBackBitForBit) {
    for (auto p : {LocationCoordinate2D{48.85, 2.35}, LocationCoordinate2D{-33.86, 151.2}, LocationCoordinate2D{35.0, 139.0}}) {
        auto out = WGS84ConvertToGCJ02ForAMapView::transformFromWGSToGCJ(p);
        EXPECT_TRUE(sameBits(out.latitude, p.latitude) && sameBits(out.longitude, p.longitude));
    }
}

TEST(DatumConversion, BoundsCountAsInside) {
    using W = WGS84ConvertToGCJ02ForAMapView;
    // Each bound itself is inside; a step past it is outside.
    EXPECT_FALSE(W::isLocationOutOfChina({35.0, 72.004}));
    EXPECT_TRUE(W::isLocationOutOfChina({35.0, 72.0039}));
    EXPECT_FALSE(W::isLocationOutOfChina({35.0, 137.8347}));
    EXPECT_TRUE(W::isLocationOutOfChina({35.0, 137.8348}));
    EXPECT_FALSE(W::isLocationOutOfChina({0.8293, 105.0}));
    EXPECT_TRUE(W::isLocationOutOfChina({0.8292, 105.0}));
    EXPECT_FALSE(W::isLocationOutOfChina({55.8271, 105.0}));
    EXPECT_TRUE(W::isLocationOutOfChina({55.8272, 105.0}));

    auto onBound = W::transformFromWGSToGCJ({55.8271, 105.0});
    EXPECT_NE(onBound.latitude, 55.8271);  // converted
    auto pastBound = W::transformFromWGSToGCJ({55.8272, 105.0});
    EXPECT_EQ(pastBound.latitude, 55.8272);
    EXPECT_NE(W::transformFromWGSToGCJ({35.0, 72.004}).longitude, 72.004);
    EXPECT_EQ(W::transformFromWGSToGCJ({35.0, 72.0039}).longitude, 72.0039);
}

}  // namespace
}  // namespace quorvane
