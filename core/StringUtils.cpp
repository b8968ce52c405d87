#include "StringUtils.h"

namespace ZentoUtils {

void splitString(const std::string& text, char separator, std::vector<std::string>& out)
{
    size_t start = 0;
    while (true) {
        const size_t end = text.find(separator, start);
        if (end == std::string::npos) {
            out.push_back(text.substr(start));
            return;
        }
        out.push_back(text.substr(start, end - start));
        start = end + 1;
    }
}

} // namespace ZentoUtils
