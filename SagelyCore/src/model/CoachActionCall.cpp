#include <sagely/CoachActionCall.h>

#include "model/json/RawValueTable.h"

namespace sagely {
namespace {

constexpr detail::RawValueTable<CoachActionCall::Status, 6> kStatuses{
    {"pending", "done", "failed", "invalid", "declined", "cancelled"}};

}  // namespace

std::string CoachActionCall::summaryLine() const {
    const std::string& shown = title.empty() ? name : title;
    switch (status) {
        case Status::pending:
            return "Waiting: " + shown;
        case Status::done:
            return "Done: " + shown;
        case Status::failed:
            return "Failed: " + shown;
        case Status::invalid:
            return "Not run (invalid request): " + shown;
        case Status::declined:
            return "Declined: " + shown;
        case Status::cancelled:
            return "Cancelled: " + shown;
    }
    return shown;
}

std::string_view rawValue(CoachActionCall::Status status) {
    return kStatuses.rawValue(status);
}

std::optional<CoachActionCall::Status> actionStatusFromRawValue(std::string_view raw) {
    return kStatuses.fromRawValue(raw);
}

}  // namespace sagely
