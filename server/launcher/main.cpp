#include "options.h"
#include "supervisor.h"

#include <cstdio>
#include <exception>

/// Xkor: starts the system's Xorg as a server without hardware, with the KOR-V1 extension, and
/// stays with it until it ends.
int main(int argc, char** argv) {
    using namespace kor::server;
    try {
        const Options options = parseOptions({argv + 1, argv + argc});
        switch (options.action) {
        case Options::Action::Help:
            fputs(usage().c_str(), stdout);
            return 0;
        case Options::Action::Version:
            puts("Xkor " KOR_VERSION " (X extension KOR-V1)");
            return 0;
        case Options::Action::Run:
            return runServer(options);
        }
    } catch (const Problem& problem) {
        fprintf(stderr, "Xkor: %s\n", problem.what());
        return problem.status();
    } catch (const std::exception& exception) {
        fprintf(stderr, "Xkor: %s\n", exception.what());
    }
    return Problem::StartFailed;
}
