#pragma once

#include <string>
#include <vector>

// A fresh directory under /tmp for one test, removed with everything in it.
class TemporaryDirectory {
public:
    TemporaryDirectory();
    ~TemporaryDirectory();

    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

    const std::string& path() const { return mPath; }
    std::string file(const std::string& name) const { return mPath + "/" + name; }
    // The names in the directory, sorted.
    std::vector<std::string> entries() const;

private:
    std::string mPath;
};
