// Local actions — answers a host gives itself, without any model: a message, optionally with a
// card or a lesson.
//
// The coach offers every question (trimmed) to its resolver first. A resolver closure given to
// the coach takes precedence; without one, a context provider that also implements
// CoachLocalActionHandler is asked. Both are called on the main thread.
#pragma once

#include <sagely/CoachCard.h>
#include <sagely/CoachLesson.h>
#include <sagely/Export.h>

#include <functional>
#include <optional>
#include <string>

namespace sagely {

struct CoachLocalActionResult {
    std::string message;
    std::optional<CoachCard> card;
    std::optional<CoachLesson> lesson;  // also handed to the coach's onLocalLessonDelivered
};

class SAGELY_EXPORT CoachLocalActionHandler {
public:
    virtual ~CoachLocalActionHandler() = default;
    /// The answer to the question, or none when it is not a local action.
    virtual std::optional<CoachLocalActionResult> localAction(const std::string& question) = 0;
};

/// The resolver closure a coach accepts: none means "not a local action; ask the model".
using CoachLocalActionResolver =
    std::function<std::optional<CoachLocalActionResult>(const std::string& question)>;

}  // namespace sagely
