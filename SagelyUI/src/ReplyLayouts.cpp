#include "ReplyLayouts.h"

#include <list>
#include <map>
#include <mutex>
#include <string>

namespace sagely::ui::detail {
namespace {

constexpr std::size_t kKeptLayouts = 512;  // well over a screenful of conversation

struct Entry {
    Uuid id;
    std::string content;
    std::shared_ptr<const ReplyLayout> layout;
};

}  // namespace

std::shared_ptr<const ReplyLayout> replyLayout(const CoachMessage& message) {
    static std::mutex mutex;
    static std::list<Entry> recent;  // most recently used first
    static std::map<Uuid, std::list<Entry>::iterator> byId;
    {
        std::lock_guard lock(mutex);
        auto found = byId.find(message.id());
        if (found != byId.end() && found->second->content == message.content()) {
            recent.splice(recent.begin(), recent, found->second);
            return found->second->layout;
        }
    }
    auto layout =
        std::make_shared<const ReplyLayout>(CoachMessageFormatting::layout(message.content()));
    std::lock_guard lock(mutex);
    if (auto stale = byId.find(message.id()); stale != byId.end()) {
        recent.erase(stale->second);
        byId.erase(stale);
    }
    recent.push_front({message.id(), message.content(), layout});
    byId[message.id()] = recent.begin();
    if (recent.size() > kKeptLayouts) {
        byId.erase(recent.back().id);
        recent.pop_back();
    }
    return layout;
}

}  // namespace sagely::ui::detail
