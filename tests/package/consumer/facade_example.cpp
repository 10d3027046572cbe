// Links the whole SDK (façade, device subsystems, a platform family) and answers one façade call, so a
// missing library or dependency of the package shows at link or load time.
#include <api/QuorvaneApiManager.h>

#include <cstdio>

int main() {
    std::string stamp = quorvane::QuorvaneApiManager::getTimestamp();
    std::printf("timestamp %s\n", stamp.c_str());
    return stamp.empty() ? 1 : 0;
}
