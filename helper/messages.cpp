#include "helper/messages.h"

#include "helper/text.h"

namespace helper
{

std::string fill(const char *sentence, const std::vector<std::string> &parts)
{
    const std::string form = sentence;
    std::string text;
    size_t from = 0;
    for (const std::string &part : parts) {
        const size_t gap = form.find("{}", from);
        if (gap == std::string::npos) {
            break;
        }
        text += form.substr(from, gap - from) + printable(part);
        from = gap + 2;
    }
    return text + form.substr(from);
}

Result refuse(const Message &message, const std::vector<std::string> &parts)
{
    return {message.status, fill(message.sentence, parts)};
}

} // namespace helper
