// One wire format's reply reader on any bytes, read as LLMClient reads a success reply: parsed
// as JSON (objects only), then the format's reply path; a reply found is a string of the answer.
#include "FuzzInput.h"

#include "llm/AnthropicMessagesDialect.h"
#include "llm/GeminiGenerateContentDialect.h"
#include "llm/OllamaChatDialect.h"
#include "llm/OpenAIChatDialect.h"

#include <sagely/Text.h>

using namespace sagely;

namespace {

const detail::Dialect& dialect() {
#if defined(SAGELY_FUZZ_DIALECT_anthropic)
    static const detail::AnthropicMessagesDialect format;
#elif defined(SAGELY_FUZZ_DIALECT_gemini)
    static const detail::GeminiGenerateContentDialect format;
#elif defined(SAGELY_FUZZ_DIALECT_ollama)
    static const detail::OllamaChatDialect format;
#else
    static const detail::OpenAIChatDialect format;
#endif
    return format;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const nlohmann::json answer =
        nlohmann::json::parse(fuzz::textOf(data, size), nullptr, /*allow_exceptions=*/false);
    if (answer.is_discarded() || !answer.is_object()) return 0;
    if (std::optional<std::string> reply = dialect().replyText(answer))
        fuzz::require(text::isValidUtf8(*reply), "a reply is UTF-8");
    return 0;
}
