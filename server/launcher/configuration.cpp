#include "configuration.h"

#include "viewing.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <sys/mman.h>
#include <unistd.h>
#include <utility>

namespace kor::server {

namespace {

/// A mode of the wanted size at 60 Hz, or as near to it as the driver's clock range of 11 to 300
/// MHz allows: small modes get longer blanking, large ones a lower rate. Nothing scans them out.
std::string modeline(int width, int height) {
    constexpr double lowestClock = 12e6;
    constexpr double highestClock = 290e6;
    constexpr double rate = 60;
    const int verticalTotal = height + 20;
    const int horizontalTotal =
        std::max(width + 80, static_cast<int>(lowestClock / (rate * verticalTotal)) + 1);
    const double clock = std::min(rate * horizontalTotal * verticalTotal, highestClock);
    char line[200];
    snprintf(line, sizeof line, "Modeline \"%dx%d\" %.3f %d %d %d %d %d %d %d %d", width, height,
             clock / 1e6, width, width + 16, width + 48, horizontalTotal, height, height + 3,
             height + 9, verticalTotal);
    return line;
}

} // namespace

std::string configurationText(const Options& options) {
    const std::string size = std::to_string(options.width) + "x" + std::to_string(options.height);
    constexpr int bytesPerPixel = 4;
    const int videoRam = largestWidth * bytesPerPixel / 1024 * largestHeight + 1024; // KiB

    std::string text;
    text += "Section \"ServerFlags\"\n"
            "  Option \"DontVTSwitch\" \"true\"\n"
            "  Option \"AutoAddDevices\" \"false\"\n"
            "  Option \"AutoEnableDevices\" \"false\"\n"
            "  Option \"AutoAddGPU\" \"false\"\n"
            "  Option \"AutoBindGPU\" \"false\"\n"
            "  Option \"BlankTime\" \"0\"\n"
            "  Option \"StandbyTime\" \"0\"\n"
            "  Option \"SuspendTime\" \"0\"\n"
            "  Option \"OffTime\" \"0\"\n"
            "EndSection\n";
    text += "Section \"Module\"\n"
            "  SubSection \"kor\"\n";
    if (!options.glDisplay.empty())
        text += "    Option \"GLDisplay\" \"" + options.glDisplay + "\"\n";
    if (!options.vendorNames)
        text += "    Option \"VendorNames\" \"false\"\n";
    text += "    Option \"LargestSize\" \"" + std::to_string(largestWidth) + "x" +
            std::to_string(largestHeight) + "\"\n" + "  EndSubSection\n";
    if (options.viewing.vnc)
        text += "  Load \"vnc\"\n";
    text += "EndSection\n";
    text += "Section \"Device\"\n"
            "  Identifier \"kor-device\"\n"
            "  Driver \"dummy\"\n"
            "  VideoRam " +
            std::to_string(videoRam) +
            "\n"
            "EndSection\n";
    text += "Section \"Monitor\"\n"
            "  Identifier \"kor-monitor\"\n"
            "  HorizSync 1.0-2000.0\n"
            "  VertRefresh 1.0-240.0\n"
            "  " +
            modeline(options.width, options.height) + "\n";
    // Sizes that people are likely to want and that the server does not know by itself.
    for (const auto& [width, height] : {std::pair(2560, 1080),
                                        {2560, 1440},
                                        {2560, 1600},
                                        {3440, 1440},
                                        {3840, 1600},
                                        {3840, 2160},
                                        {5120, 2880},
                                        {largestWidth, largestHeight}})
        if (width != options.width || height != options.height)
            text += "  " + modeline(width, height) + "\n";
    text += "EndSection\n";
    // No depth in the subsection: it then serves whatever depth the command line asks for.
    text += "Section \"Screen\"\n"
            "  Identifier \"kor-screen\"\n"
            "  Device \"kor-device\"\n"
            "  Monitor \"kor-monitor\"\n"
            "  DefaultDepth 24\n" +
            vncOptions(options.viewing, options.verbose) +
            "  SubSection \"Display\"\n"
            "    Modes \"" +
            size +
            "\"\n"
            "    Virtual " +
            std::to_string(largestWidth) + " " + std::to_string(largestHeight) +
            "\n"
            "  EndSubSection\n"
            "EndSection\n";
    // A layout without devices makes the server look for the machine's own keyboard and mouse; the
    // void driver stands for none, and where it is not installed the result is the same.
    for (const char* device : {"kor-keyboard", "kor-pointer"})
        text += std::string("Section \"InputDevice\"\n  Identifier \"") + device +
                "\"\n  Driver \"void\"\nEndSection\n";
    text += "Section \"ServerLayout\"\n"
            "  Identifier \"kor-layout\"\n"
            "  Screen \"kor-screen\"\n"
            "  InputDevice \"kor-keyboard\" \"CoreKeyboard\"\n"
            "  InputDevice \"kor-pointer\" \"CorePointer\"\n"
            "EndSection\n";
    return text;
}

int configurationFile(const std::string& text) {
    const int file = memfd_create("xkor.conf", MFD_CLOEXEC);
    if (file == -1)
        throw Problem(Problem::StartFailed,
                      std::string("no memory for the server's configuration: ") + strerror(errno));
    if (write(file, text.data(), text.size()) != static_cast<ssize_t>(text.size())) {
        close(file);
        throw Problem(Problem::StartFailed, "the server's configuration cannot be written");
    }
    return file;
}

} // namespace kor::server
