"""The library's settings, as its own table has them."""
import re


def turned_settings(run):
    """Every boolean setting the other way, by the names of their environment variables."""
    text = (run.top / "src/config/settings.def").read_text()
    pattern = r'KOR_SETTING\(bool, \w+, "[\w-]+", "\w+",\s*"(\w+)",\s*(true|false),'
    found = {name: "0" if value == "true" else "1" for name, value in re.findall(pattern, text)}
    if len(found) < 10:
        raise RuntimeError("the table of settings is not read")
    # These would leave nothing to look at, or print a line for every call.
    for name in ("KOR_GL_NO_READBACK", "KOR_GL_VERBOSE"):
        found.pop(name)
    return found
