#include <sagely/Timestamp.h>

#include <chrono>

namespace sagely {

Timestamp Timestamp::now() {
    using namespace std::chrono;
    auto sinceEpoch = duration_cast<duration<double>>(system_clock::now().time_since_epoch());
    return fromUnixSeconds(sinceEpoch.count());
}

}  // namespace sagely
