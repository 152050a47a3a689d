#include "Control/JsonFields.h"

#include <cmath>

namespace {

constexpr double LARGEST = 9e15; ///< every smaller number is exact, and sums of some do not overflow

} // namespace

const nlohmann::json& MemberIn(const nlohmann::json& object, const char* pszName)
{
    static const nlohmann::json NOTHING;
    if (!object.is_object())
        return NOTHING;
    const auto found = object.find(pszName);
    return found == object.end() ? NOTHING : *found;
}

std::string TextIn(const nlohmann::json& object, const char* pszName)
{
    const nlohmann::json& member = MemberIn(object, pszName);
    return member.is_string() ? member.get<std::string>() : std::string();
}

double RealIn(const nlohmann::json& object, const char* pszName)
{
    const nlohmann::json& member = MemberIn(object, pszName);
    const double value = member.is_number() ? member.get<double>() : 0;
    return std::abs(value) <= LARGEST ? value : 0;
}

int64_t NumberIn(const nlohmann::json& object, const char* pszName)
{
    return static_cast<int64_t>(RealIn(object, pszName));
}

bool FlagIn(const nlohmann::json& object, const char* pszName)
{
    const nlohmann::json& member = MemberIn(object, pszName);
    return member.is_boolean() && member.get<bool>();
}
