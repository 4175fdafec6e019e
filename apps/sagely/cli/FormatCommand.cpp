// sagely format — the kit's reply formatter on standard input.
#include "cli/Commands.h"
#include "cli/Rendering.h"
#include "cli/TerminalText.h"

#include <sagely/CoachMessageFormatting.h>

#include <nlohmann/json.hpp>

#include <istream>
#include <iterator>
#include <ostream>

namespace sagely::cli {
namespace {

using Formatting = CoachMessageFormatting;

std::string dumped(const nlohmann::ordered_json& json) {
    return json.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) + "\n";
}

nlohmann::ordered_json stepsJson(const std::string& input) {
    const auto content = Formatting::parseProceduralContent(input);
    if (!content) return nullptr;
    nlohmann::ordered_json steps = nlohmann::ordered_json::array();
    for (const auto& step : content->steps)
        steps.push_back({{"title", step.title}, {"details", step.details}});
    return {{"intro", content->intro}, {"steps", std::move(steps)}};
}

}  // namespace

int formatCommand(const ParsedArguments& arguments, Host& host) {
    if (!arguments.positionals().empty())
        throw UsageError("unexpected argument '" + arguments.positionals().front() +
                         "' (the reply is read from standard input)");
    const int modes = arguments.has("normalize") + arguments.has("blocks") + arguments.has("steps");
    if (modes > 1) throw UsageError("choose one of --normalize, --blocks and --steps");
    const std::string input{std::istreambuf_iterator<char>(host.in),
                            std::istreambuf_iterator<char>()};
    if (host.wasInterrupted()) return exitInterrupted;
    if (arguments.has("normalize"))
        host.out << Renderer::plain(Formatting::normalize(input)) << "\n";
    else if (arguments.has("blocks"))
        host.out << terminalSafeJson(dumped(Formatting::blocks(input)));
    else if (arguments.has("steps"))
        host.out << terminalSafeJson(dumped(stepsJson(input)));
    else
        host.out << Renderer(host.usesColor()).replyText(input);
    return exitOk;
}

}  // namespace sagely::cli
