// sagely — a command-line host of SagelyKit.
#include <sagely/CoachConfig.h>

#include <iostream>
#include <string>
#include <string_view>

namespace {

void printProviders(std::ostream& out) {
    for (sagely::Provider provider : sagely::CoachConfig::selectableProviders()) {
        out << sagely::storageID(provider) << "\t" << sagely::menuLabel(provider)
            << "\tdefault model: " << sagely::CoachConfig::defaultModel(provider)
            << (sagely::CoachConfig::isKeylessProvider(provider) ? "\tno key needed" : "\tAPI key")
            << "\n";
    }
}

}  // namespace

int main(int argc, char** argv) {
    std::string_view command = argc > 1 ? argv[1] : "";
    if (command == "providers") {
        printProviders(std::cout);
        return 0;
    }
    std::cerr << "sagely: unknown command '" << command << "'\nusage: sagely providers\n";
    return 2;
}
