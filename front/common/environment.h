#ifndef KOR_FRONT_ENVIRONMENT_H
#define KOR_FRONT_ENVIRONMENT_H

namespace kor::front {

/// True when the process has privileges that its user lacks (set-user-id, file capabilities). Its
/// environment is then the work of somebody who must not decide what is loaded into it.
bool hasRaisedPrivileges();

/// The value of an environment variable, or null. Read from the environment itself: an application
/// may define a getenv of its own.
const char* environmentValue(const char* name);

/// Removes every variable whose name begins with that prefix. Not synchronised with other threads
/// that read or change the environment, as ever.
void removeVariables(const char* prefix);

} // namespace kor::front

#endif
