#include "LoaderFiles.h"

#include "Archive.h"
#include "MapMetadata.h"
#include "MathUtils.h"

#include <cctype>
#include <sys/stat.h>
#include <unistd.h>

namespace Zento {

void setError(std::string* error, const std::string& message)
{
    if (error)
        *error = message;
}

std::string cannotRead(const std::string& file, const std::string& reason)
{
    return "Cannot read \"" + file + "\": " + reason;
}

std::string fileProblem(const std::string& file)
{
    struct stat status;
    if (file.empty() || ::stat(file.c_str(), &status) != 0)
        return "No such file: \"" + file + "\"";
    if (S_ISDIR(status.st_mode))
        return "\"" + file + "\" is a directory, not a file";
    if (!S_ISREG(status.st_mode) || ::access(file.c_str(), R_OK) != 0)
        return "\"" + file + "\" cannot be read";
    return std::string();
}

std::string fileExtension(const std::string& file)
{
    const size_t slash = file.find_last_of('/');
    const size_t dot = file.find_last_of('.');
    if (dot == std::string::npos || (slash != std::string::npos && dot < slash))
        return std::string();
    std::string extension = file.substr(dot);
    for (char& c : extension)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return extension;
}

bool readArchiveMap(const std::string& file, ZentoCore::MapMetadata& map, std::string* error)
{
    map.clear();
    const std::string problem = fileProblem(file);
    if (!problem.empty()) {
        setError(error, problem);
        return false;
    }
    ZentoCore::Archive archive;
    if (!archive.readFromFile(file)) {
        setError(error, "\"" + file + "\" is not a Zento file, or it is damaged");
        return false;
    }
    archive >> map;
    if (!archive.good()) {
        setError(error, "\"" + file + "\" holds no readable values");
        return false;
    }
    return true;
}

bool writeArchiveMap(const ZentoCore::MapMetadata& map, const std::string& file, std::string* error,
                     ZentoCore::Archive::Sync sync)
{
    ZentoCore::Archive archive(map.memSize(), 0);
    archive << map;
    if (!archive.good() || !archive.writeToFile(file, sync)) {
        setError(error, "Cannot write \"" + file + "\"");
        return false;
    }
    return true;
}

std::string pathElementName(const std::string& name, const std::string& fallback)
{
    if (name.empty())
        return fallback;
    std::string fitted = name;
    for (char& c : fitted)
        if (c == '/' || static_cast<unsigned char>(c) < 0x20 || c == 0x7f)
            c = '_';
    return fitted;
}

void splitMatrix(const Imath::M44d& m, Imath::V3d& translation, Imath::Quatd& rotation, Imath::V3d& scale)
{
    if (ZentoCore::extractSRT(m, scale, rotation, translation))
        return;
    translation = Imath::V3d(m[3][0], m[3][1], m[3][2]);
    rotation = Imath::Quatd();
    scale = Imath::V3d(Imath::V3d(m[0][0], m[0][1], m[0][2]).length(), Imath::V3d(m[1][0], m[1][1], m[1][2]).length(),
                       Imath::V3d(m[2][0], m[2][1], m[2][2]).length());
}

} // namespace Zento
