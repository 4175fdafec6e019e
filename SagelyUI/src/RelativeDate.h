// How long ago a moment was, as the conversation list shows it: numeric, with abbreviated units
// ("5 min. ago", "2 hr. ago", "3 days ago", "in 10 sec.").
#pragma once

#include <sagely/Timestamp.h>

#include <QString>

namespace sagely::ui::detail {

/// `date` relative to `now`, in the largest whole unit that fits.
QString relativeDateText(Timestamp date, Timestamp now);

}  // namespace sagely::ui::detail
