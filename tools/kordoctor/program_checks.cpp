#include "program_checks.h"

#include "elf_file.h"
#include "program_front.h"

#include <elf.h>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace kordoctor {

namespace {

namespace files = std::filesystem;

constexpr int deepestScript = 4; // interpreters that are scripts themselves

// The file whose machine code runs, and how we came to it.
struct Program {
    std::string path;
    std::string road; // "" or "script, run by ..."
    std::string problem;
};

Program followScripts(const std::string& name) {
    Program program;
    program.path = korrun::findProgram(name);
    if (program.path.empty()) {
        program.problem = name + " is not found, or may not be executed";
        return program;
    }
    for (int depth = 0; depth < deepestScript; ++depth) {
        std::ifstream file(program.path, std::ios::binary);
        char magic[2] = {};
        if (!file.read(magic, 2)) {
            program.problem = program.path + " cannot be read";
            return program;
        }
        if (magic[0] != '#' || magic[1] != '!')
            return program;
        std::string line;
        std::getline(file, line);
        std::istringstream words(line.substr(0, 4096));
        std::string interpreter;
        std::string argument;
        words >> interpreter >> argument;
        if (files::path(interpreter).filename() == "env") {
            while (argument.starts_with("-") || argument.find('=') != std::string::npos)
                if (!(words >> argument))
                    argument.clear();
            interpreter = argument;
        }
        program.road.append("script, run by ").append(interpreter).append(": ");
        program.path = korrun::findProgram(interpreter);
        if (program.path.empty()) {
            program.problem = name;
            program.problem.append(" is a script whose interpreter is not found: ")
                .append(interpreter);
            return program;
        }
    }
    program.problem = name + " is a script whose interpreters are scripts without end";
    return program;
}

void examine(Findings& findings, const std::string& name,
             const korrun::Installation& installation) {
    findings.begin("program");
    const Program program = followScripts(name);
    if (!program.problem.empty()) {
        findings.broken(program.problem, "name a program, by its path or as the shell finds it");
        return;
    }
    const auto elf = readElf(program.path);
    if (!elf || (elf->machine != EM_X86_64 && elf->machine != EM_386)) {
        findings.broken(program.road + program.path + " is no program of this kind of machine",
                        "name a program that this machine can run");
        return;
    }
    findings.ok(program.road + program.path + ", " + std::to_string(elf->bits) + "-bit");
    checkProgramFront(findings, program.path, *elf, installation);
}

} // namespace

Section programSection(const std::string& name, const korrun::Installation& installation) {
    Section section;
    section.checks = {{"program", "program"}, {"program-front", "program's front"}};
    section.patience = std::chrono::seconds(30);
    section.adviceWhenLost = "the program's file cannot be examined: name another";
    section.examine = [name, installation](Findings& findings) {
        examine(findings, name, installation);
    };
    return section;
}

} // namespace kordoctor
