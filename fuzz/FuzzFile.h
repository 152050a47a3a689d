#pragma once

#include "Bex/CSimpleString.h"

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>
#include <unistd.h>

/// The one file of a fuzz target that reads files; in memory where the system has a place for that.
class CFuzzFile
{
public:
    CFuzzFile()
    {
        const std::filesystem::path memory = "/dev/shm";
        m_directory = std::filesystem::exists(memory) ? memory : std::filesystem::temp_directory_path();
        m_directory /= "tobix-fuzz-" + std::to_string(getpid());
        std::filesystem::create_directory(m_directory);
    }
    ~CFuzzFile()
    {
        std::error_code ignored;
        std::filesystem::remove_all(m_directory, ignored);
    }
    CFuzzFile(const CFuzzFile&) = delete;
    CFuzzFile& operator=(const CFuzzFile&) = delete;

    Bex::CSimpleString Path() const { return Bex::CSimpleString((m_directory / "input").c_str()); }
    void Write(const uint8_t* pData, size_t nSize) const
    {
        std::ofstream file(m_directory / "input", std::ios::binary);
        file.write(reinterpret_cast<const char*>(pData), static_cast<std::streamsize>(nSize));
    }
    std::string Read() const
    {
        std::ifstream file(m_directory / "input", std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }

private:
    std::filesystem::path m_directory;
};
