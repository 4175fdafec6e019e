// The actions Tessel offers its coach: open a guide chapter (it only shows something, so it runs
// without asking), switch the appearance and create a canvas (both ask the user first).
#pragma once

#include <sagely/CoachHostAction.h>

#include <vector>

namespace tessel {

class DemoMainWindow;

/// The actions, acting on `window` (which must outlive the coach's use of them).
std::vector<sagely::CoachHostAction> demoActions(DemoMainWindow& window);

}  // namespace tessel
