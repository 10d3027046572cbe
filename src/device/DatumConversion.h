#pragma once
// WGS-84 → GCJ-02 (the datum of maps in mainland China). Pure arithmetic, no platform.
namespace quorvane {

// Krasovsky 1940 ellipsoid: semi-major axis (metres) and first eccentricity squared; and π.
extern const double a;
extern const double ee;
extern const double pi;

// Decimal degrees, latitude first.
struct LocationCoordinate2D {
    double latitude = 0;
    double longitude = 0;
};

class WGS84ConvertToGCJ02ForAMapView {
public:
    // Points outside China come back unchanged. Inside, the latitude also carries this system's fixed
    // -0.000399° correction.
    static LocationCoordinate2D transformFromWGSToGCJ(LocationCoordinate2D wgsLoc);
    // Outside the rectangle 72.004..137.8347 E, 0.8293..55.8271 N; the bounds count as inside.
    static bool isLocationOutOfChina(LocationCoordinate2D location);
    static double transformLat(double x, double y);
    static double transformLon(double x, double y);
};

}  // namespace quorvane
