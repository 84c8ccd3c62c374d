#pragma once

#include <string>
#include <vector>

/// The text of a checker that ends with a failure, does not say the words of praise or says a bad word besides; nothing
/// when it is content. Exit codes alone are not trusted: many checkers exit with 0 for most damage.
std::string Complaint(const std::vector<std::string>& command, const std::string& praise,
                      const std::vector<std::string>& badWords);
