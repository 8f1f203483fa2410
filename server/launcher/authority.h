#ifndef KOR_SERVER_LAUNCHER_AUTHORITY_H
#define KOR_SERVER_LAUNCHER_AUTHORITY_H

#include <optional>
#include <string>

namespace kor::server {

/// Checks an authority file that the caller gave: it can be read and holds at least one entry, for
/// with none the server would let in every user of the machine. Throws Problem.
void checkAuthority(const std::string& path);

/// An authority file with a fresh cookie, readable by its owner alone, in $XDG_RUNTIME_DIR or /tmp.
/// Not removed here: the janitor does that, also when the launcher is killed.
class Authority {
  public:
    /// Makes the file; while the display number is not known its entry holds for every number.
    /// Throws Problem.
    explicit Authority(std::optional<int> display);

    /// Narrows the entry to one display number. Readers see the old file or the new one.
    void setDisplay(int display);

    [[nodiscard]] const std::string& path() const { return m_path; }
    [[nodiscard]] const std::string& cookie() const { return m_cookie; }

  private:
    std::string m_path;
    std::string m_cookie;
};

} // namespace kor::server

#endif
