// A host outside the kit's source and build trees. It prints what only a working kit can: the
// first heading of the guide the kit ships and the guide section an offline answer comes from.
#include <sagely/CoachGuideAnswers.h>
#include <sagely/SagelyKnowledge.h>
#include <sagely/Version.h>

#include <iostream>
#include <sstream>
#include <string>

int main() {
    const std::string guide = sagely::SagelyKnowledge::bundledGuideText();
    std::istringstream lines(guide);
    std::string heading;
    while (std::getline(lines, heading) && heading.rfind("# ", 0) != 0) {
    }
    std::cout << "SagelyKit " << SAGELY_VERSION_STRING << "\n";
    std::cout << "guide heading: " << heading << "\n";
    auto answer = sagely::answerFromGuide(guide, "How are API keys stored?");
    if (!answer || !answer->card) {
        std::cout << "no offline answer\n";
        return 1;
    }
    std::cout << "offline answer from: " << answer->card->title << "\n";
    return 0;
}
