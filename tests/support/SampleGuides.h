// Small guides shared by the tests of the excerpt ranking and of the offline guide answers.
#pragma once

#include <string>

namespace sagely::testing {

/// A guide with a "Setup Guides" section, two setup sub-sections and three topic sections whose
/// titles earn the shortcut, permission and speech bonuses.
inline const std::string kSampleSetupGuide =
    "## Setup Guides\n"
    "Start here to set up the app.\n"
    "### Set Up Speech\n"
    "Enable speech input in Settings.\n"
    "### Set Up Coach\n"
    "Pick a provider and paste a key.\n"
    "## Keyboard Shortcuts\n"
    "Press Command-K to open the palette.\n"
    "## Permissions\n"
    "Grant microphone permission for voice control.\n"
    "## Speech & Voice Control\n"
    "Push-to-talk and dictation.\n";

}  // namespace sagely::testing
