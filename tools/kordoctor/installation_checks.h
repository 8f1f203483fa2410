#pragma once

#include "installation.h"
#include "section.h"

#include <string>
#include <vector>

namespace kordoctor {

// Our libraries in one folder of fronts.
struct FrontFolder {
    std::string folder;
    int bits = 0;        // of the front library; 0 when it is no library
    std::string front;   // paths; empty when it is not there
    std::string library; // libGL_KOR.so
    std::string adapter; // libkor-sysgl.so
    std::string vendor;  // libGLX_kor.so.0, the other front
};

std::vector<FrontFolder> findFronts(const korrun::Installation& installation);

// Whether all parts are there, load, and are of one version. `loader32`: the dynamic linker of
// 32-bit programs.
Section installationSection(const korrun::Installation& installation,
                            const std::string& loader32 = "/lib/ld-linux.so.2");

} // namespace kordoctor
