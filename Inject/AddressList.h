#pragma once

#include <string>
#include <string_view>
#include <vector>

/// The bare addresses of a list (RFC 5322 3.4 and 4.4): without names, comments, groups, routes, quotes and folds. What
/// stands where an address should comes as it is; whether it can be mailed to is for the caller to see. Any thread.
std::vector<std::string> AddressList(std::string_view text);
