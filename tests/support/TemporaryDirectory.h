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
    // The bytes of a file in the directory; empty when it cannot be read.
    std::string read(const std::string& name) const;
    // The bytes of any file, such as a real model to damage a copy of.
    static std::string readFile(const std::string& path);
    void write(const std::string& name, const std::string& bytes) const;
    // The names in the directory, sorted.
    std::vector<std::string> entries() const;

private:
    std::string mPath;
};
