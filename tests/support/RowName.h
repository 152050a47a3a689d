#pragma once

#include <string>

/// The names of a table's rows, which they hold in their first member, pszName: INSTANTIATE_TEST_SUITE_P's last
/// argument.
inline constexpr auto ROW_NAME = [](const auto& info) { return std::string(info.param.pszName); };
