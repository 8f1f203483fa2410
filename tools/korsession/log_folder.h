#pragma once

#include <optional>
#include <string>

namespace korsession {

// Makes the folder of a session's logs, and sees that something can be written there. Where the
// user names none, each session has one of its own, and all but the newest are removed. Throws
// Failure.
std::string makeLogFolder(const std::optional<std::string>& given);

// Why a session's log can no longer be written, for the user; empty while it can.
std::string complaintAbout(const std::string& logFolder);

} // namespace korsession
