#include "password.h"

#include "failure.h"
#include "file_descriptor.h"
#include "installation.h"
#include "pipe_text.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/random.h>
#include <sys/wait.h>
#include <unistd.h>

namespace korsession {

using korrun::Failure;
using korrun::FileDescriptor;

namespace {

constexpr std::size_t passwordLength = 8;

std::string draw() {
    constexpr char letters[] = "abcdefghijkmnopqrstuvwxyzABCDEFGHJKLMNPQRSTUVWXYZ23456789-_ABCDE";
    static_assert(sizeof letters - 1 == 64); // so that every byte's lower bits are as likely
    unsigned char bytes[passwordLength];
    if (getrandom(bytes, sizeof bytes, 0) != static_cast<ssize_t>(sizeof bytes))
        throw Failure(korrun::StatusMissing,
                      std::string("no random bytes: ") + std::strerror(errno));
    std::string password;
    for (const unsigned char byte : bytes)
        password += letters[byte & 63];
    return password;
}

} // namespace

std::string makePassword(const std::string& file) {
    const std::string program = korrun::findProgram("vncpasswd");
    if (program.empty())
        throw Failure(korrun::StatusMissing,
                      "vncpasswd, which makes the session's password, is missing: install the "
                      "package tigervnc-tools, or give --password FILE or --insecure");
    std::string password = draw();
    const FileDescriptor output(
        open(file.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, S_IRUSR | S_IWUSR));
    if (!output.isOpen())
        throw Failure(korrun::StatusMissing, "cannot write " + file + ": " + std::strerror(errno));
    korrun::Pipe input = korrun::makePipe();
    const pid_t process = fork();
    if (process < 0)
        throw Failure(korrun::StatusMissing,
                      std::string("cannot start a process: ") + std::strerror(errno));
    if (process == 0) {
        dup2(input.readEnd.get(), 0);
        dup2(output.get(), 1);
        execl(program.c_str(), "vncpasswd", "-f", nullptr);
        _exit(127);
    }
    input.readEnd.close();
    korrun::writeText(input.writeEnd.get(), password + "\n");
    input.writeEnd.close();
    int status = 0;
    while (waitpid(process, &status, 0) < 0 && errno == EINTR) {
    }
    if (status != 0 || lseek(output.get(), 0, SEEK_END) < static_cast<off_t>(passwordLength))
        throw Failure(korrun::StatusMissing, program + " did not make the session's password");
    return password;
}

} // namespace korsession
