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
    /// Draws the cookie and the file's name; the file is not there yet. Throws Problem.
    Authority();

    /// Writes the file, in the place of what it was before: readers see the old one or the new one.
    /// Without a display number the entry holds for every number. Throws Problem.
    void write(std::optional<int> display) const;

    [[nodiscard]] const std::string& path() const { return m_path; }
    [[nodiscard]] const std::string& cookie() const { return m_cookie; }

    /// Where the next contents of an authority file are written before they take its place.
    static std::string successorOf(const std::string& path) { return path + ".new"; }

  private:
    std::string m_path;
    std::string m_cookie;
};

} // namespace kor::server

#endif
