#pragma once

#include <filesystem>
#include <fstream>
#include <set>
#include <stdexcept>
#include <stdlib.h>
#include <string>

/// A directory of the test's own, under /tmp unless told otherwise; goes with everything in it. Tests that make
/// thousands of files take IN_MEMORY.
class CTemporaryDirectory
{
public:
    static constexpr const char* IN_MEMORY = "/dev/shm";

    explicit CTemporaryDirectory(const std::string& strParent = "/tmp")
    {
        std::string strPattern = strParent + "/tobix-test-XXXXXX";
        if (mkdtemp(strPattern.data()) == nullptr)
            throw std::runtime_error("no temporary directory");
        m_path = strPattern;
    }
    ~CTemporaryDirectory()
    {
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }
    CTemporaryDirectory(const CTemporaryDirectory&) = delete;
    CTemporaryDirectory& operator=(const CTemporaryDirectory&) = delete;

    const std::filesystem::path& Path() const { return m_path; }
    std::string operator/(const std::string& strName) const { return m_path / strName; }

    std::string Write(const std::string& strName, const std::string& strContent) const
    {
        const std::filesystem::path path = m_path / strName;
        std::filesystem::create_directories(path.parent_path());
        std::ofstream(path, std::ios::binary) << strContent;
        return path;
    }
    std::string Read(const std::string& strName) const
    {
        std::ifstream file(m_path / strName, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }
    /// Of all that lies directly in it.
    std::set<std::string> Names() const
    {
        std::set<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(m_path))
            names.insert(entry.path().filename());
        return names;
    }

private:
    std::filesystem::path m_path;
};
