// Paths are UTF-8 in every string of the program; these are the only conversions.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace quor {

std::string toUtf8(const std::filesystem::path& path);
std::filesystem::path fromUtf8(std::string_view text);

// Whether both lead to the same existing file or folder, or are the same path where nothing is.
bool isSamePlace(const std::filesystem::path& a, const std::filesystem::path& b);

// The value of an environment variable (UTF-8), or nothing when it is not set.
std::optional<std::string> environmentVariable(const char* name);
// A null value removes the variable. Not while another thread reads the environment.
void setEnvironmentVariable(const char* name, const char* value);

// The user's folder for this program's own files, not created here: on Linux $XDG_DATA_HOME/Ombrelux, else
// ~/.local/share/Ombrelux; the system's temporary folder takes its place when there is no home.
std::filesystem::path userDataFolder();

// The folder of the running program's file; empty when the system does not tell.
std::filesystem::path executableFolder();

// userDataFolder()/logs/Ombrelux.log
std::filesystem::path applicationLogFile();

}  // namespace quor
