#include "search.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <glob.h>

namespace kor::front {

namespace {

#if defined(__x86_64__)
const char* const standardFolders[] = {"/lib/x86_64-linux-gnu",
                                       "/usr/lib/x86_64-linux-gnu",
                                       "/lib64",
                                       "/usr/lib64",
                                       "/lib",
                                       "/usr/lib"};
#elif defined(__i386__)
const char* const standardFolders[] = {
    "/lib/i386-linux-gnu", "/usr/lib/i386-linux-gnu", "/lib32", "/usr/lib32", "/lib", "/usr/lib"};
#endif

// Settings that include each other must come to an end.
constexpr int deepestInclude = 8;

using Folders = std::vector<std::string>;

void readLinkerSettings(const std::string& path, int depth, Folders& folders);

void includeLinkerSettings(const std::string& from, std::string pattern, int depth,
                           Folders& folders) {
    if (depth == deepestInclude)
        return;
    if (pattern[0] != '/')
        pattern = from.substr(0, from.rfind('/') + 1) + pattern;
    glob_t found{};
    if (glob(pattern.c_str(), 0, nullptr, &found) == 0)
        for (size_t i = 0; i < found.gl_pathc; ++i)
            readLinkerSettings(found.gl_pathv[i], depth + 1, folders);
    globfree(&found);
}

/// The words of one line, up to a comment.
Folders wordsOf(const char* line) {
    Folders words;
    while (*line != '\0' && *line != '#' && *line != '\n') {
        const size_t blanks = strspn(line, " \t\r");
        const size_t length = strcspn(line + blanks, " \t\r\n#");
        if (length > 0)
            words.emplace_back(line + blanks, length);
        line += blanks + length;
    }
    return words;
}

void readLinkerSettings(const std::string& path, int depth, Folders& folders) {
    FILE* file = fopen(path.c_str(), "re");
    if (file == nullptr)
        return;
    char* line = nullptr;
    size_t capacity = 0;
    while (getline(&line, &capacity, file) >= 0) {
        const Folders words = wordsOf(line);
        if (words.empty() || words[0] == "hwcap")
            continue;
        const bool include = words[0] == "include";
        for (size_t i = include ? 1 : 0; i < words.size(); ++i)
            if (include)
                includeLinkerSettings(path, words[i], depth, folders);
            else if (words[i][0] == '/')
                folders.push_back(words[i].substr(0, words[i].find('='))); // may be FOLDER=KIND
    }
    free(line);
    fclose(file);
}

void splitLibraryPath(const char* list, Folders& folders) {
    std::string folder;
    for (const char* at = list;; ++at) {
        if (*at != '\0' && *at != ':' && *at != ';') {
            folder += *at;
            continue;
        }
        // An empty entry means the working directory, as for the dynamic linker.
        folders.push_back(folder.empty() ? "." : folder);
        folder.clear();
        if (*at == '\0')
            return;
    }
}

} // namespace

std::vector<std::string> libraryCandidates(const SearchPlaces& places, const std::string& name) {
    Folders folders;
    if (places.libraryPath != nullptr && *places.libraryPath != '\0')
        splitLibraryPath(places.libraryPath, folders);
    readLinkerSettings(places.linkerSettings, 0, folders);
    folders.insert(folders.end(), std::begin(standardFolders), std::end(standardFolders));

    std::vector<std::string> candidates;
    for (std::string folder : folders) {
        while (folder.size() > 1 && folder.back() == '/')
            folder.pop_back();
        std::string candidate = std::move(folder);
        candidate += "/" + name;
        if (std::find(candidates.begin(), candidates.end(), candidate) == candidates.end())
            candidates.push_back(std::move(candidate));
    }
    return candidates;
}

} // namespace kor::front
