#include "UniqueNames.h"

namespace ZentoCore {

UniqueNames::UniqueNames(std::unordered_set<std::string> taken) : mTaken(std::move(taken)) {}

std::string UniqueNames::claim(const std::string& name)
{
    if (mTaken.insert(name).second)
        return name;
    // Numbers below the last one given were all taken then, and a name is
    // never given back, so the search goes on from there.
    unsigned long& number = mLastNumber[name];
    std::string unique;
    do
        unique = name + std::to_string(++number);
    while (!mTaken.insert(unique).second);
    return unique;
}

} // namespace ZentoCore
