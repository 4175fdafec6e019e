#include "RelativeDate.h"

#include "Style.h"

#include <cmath>

namespace sagely::ui::detail {
namespace {

struct Unit {
    double seconds;
    const char* one;
    const char* many;
};

constexpr Unit kUnits[] = {
    {365.0 * 86400.0, "yr.", "yr."}, {30.0 * 86400.0, "mo.", "mo."}, {7.0 * 86400.0, "wk.", "wk."},
    {86400.0, "day", "days"},        {3600.0, "hr.", "hr."},         {60.0, "min.", "min."},
    {1.0, "sec.", "sec."},
};

}  // namespace

QString relativeDateText(Timestamp date, Timestamp now) {
    const double delta = now.secondsSinceReferenceDate() - date.secondsSinceReferenceDate();
    const double magnitude = std::fabs(delta);
    for (const Unit& unit : kUnits) {
        const auto count = static_cast<long long>(std::floor(magnitude / unit.seconds));
        if (count < 1 && unit.seconds > 1.0) continue;
        const QString amount =
            QString::number(count) + u' ' + localized(count == 1 ? unit.one : unit.many);
        // Like the platform's numeric style, the present moment reads as "in 0 sec.".
        return delta >= 1.0 ? localized("%1 ago").arg(amount) : localized("in %1").arg(amount);
    }
    return {};
}

}  // namespace sagely::ui::detail
