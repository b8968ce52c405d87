#include "TemporaryDirectory.h"

#include <algorithm>
#include <cstdlib>
#include <dirent.h>
#include <fstream>
#include <iterator>
#include <sys/stat.h>

TemporaryDirectory::TemporaryDirectory()
{
    char pattern[] = "/tmp/zento-test-XXXXXX";
    const char* made = ::mkdtemp(pattern);
    mPath = made ? made : "";
}

TemporaryDirectory::~TemporaryDirectory()
{
    if (mPath.empty())
        return;
    ::chmod(mPath.c_str(), 0700);
    const int ignored = std::system(("rm -rf '" + mPath + "'").c_str());
    (void)ignored;
}

std::vector<std::string> TemporaryDirectory::entries() const
{
    std::vector<std::string> names;
    DIR* dir = ::opendir(mPath.c_str());
    while (dirent* entry = dir ? ::readdir(dir) : nullptr)
        if (std::string(entry->d_name) != "." && std::string(entry->d_name) != "..")
            names.push_back(entry->d_name);
    if (dir)
        ::closedir(dir);
    std::sort(names.begin(), names.end());
    return names;
}

std::string TemporaryDirectory::read(const std::string& name) const
{
    return readFile(file(name));
}

std::string TemporaryDirectory::readFile(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

void TemporaryDirectory::write(const std::string& name, const std::string& bytes) const
{
    std::ofstream(file(name), std::ios::binary) << bytes;
}
