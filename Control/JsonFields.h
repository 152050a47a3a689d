#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>

/// Members of an answer, whatever it is: one that is missing or of another kind is empty. Any thread.

std::string TextIn(const nlohmann::json& object, const char* pszName);
int64_t NumberIn(const nlohmann::json& object, const char* pszName);
double RealIn(const nlohmann::json& object, const char* pszName);
bool FlagIn(const nlohmann::json& object, const char* pszName);
const nlohmann::json& MemberIn(const nlohmann::json& object, const char* pszName); ///< null when missing; not copied
