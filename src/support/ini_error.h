#ifndef KOR_SUPPORT_INI_ERROR_H
#define KOR_SUPPORT_INI_ERROR_H

namespace kor {

enum IniErrorCode {
    IniParserError = 1,
    IniUserFunctionError = 2,
    IniNoUserFunction = 3,
    IniInvalidArgument = 4,
    IniOutOfMemory = 5,
    IniNoSuchFile = 6,
};

/// Why and where the reading of an INI file ended.
struct IniError {
    int errnum;
    int linenum; // 0 when it is not a parse error
    char errstr[128];
};

} // namespace kor

#endif
