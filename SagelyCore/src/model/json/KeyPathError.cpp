#include "model/json/KeyPathError.h"

namespace sagely::detail {

KeyPathError::KeyPathError(std::string problem, std::vector<Step> path)
    : DecodingError(text(path, problem)), m_path(std::move(path)), m_problem(std::move(problem)) {}

// "[2].messages[7].role: <problem>", or the problem alone at the root.
std::string KeyPathError::text(const std::vector<Step>& path, const std::string& problem) {
    std::string out;
    for (const Step& step : path) {
        if (step.isIndex) {
            out += '[' + std::to_string(step.index) + ']';
            continue;
        }
        if (!out.empty()) out += '.';
        out += step.key;
    }
    if (!out.empty()) out += ": ";
    return out + problem;
}

KeyPathError KeyPathError::under(Step step) const {
    std::vector<Step> path;
    path.reserve(m_path.size() + 1);
    path.push_back(std::move(step));
    path.insert(path.end(), m_path.begin(), m_path.end());
    return KeyPathError(m_problem, std::move(path));
}

KeyPathError KeyPathError::underKey(std::string_view key) const {
    return under({std::string(key), 0, false});
}

KeyPathError KeyPathError::underIndex(std::size_t index) const {
    return under({{}, index, true});
}

}  // namespace sagely::detail
