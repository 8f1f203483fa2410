#include "elf_file.h"

#include <algorithm>
#include <cstring>
#include <elf.h>
#include <fcntl.h>
#include <string_view>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace kordoctor {

namespace {

constexpr uint32_t versionNoteType = 1;
constexpr char versionNoteName[] = "KOR-GL";
constexpr off_t largestFile = off_t{4} << 30;

// The file's bytes, mapped while the object is there.
class MappedFile {
  public:
    explicit MappedFile(const std::string& path) {
        const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
        struct stat status {};
        if (file >= 0 && fstat(file, &status) == 0 && S_ISREG(status.st_mode) &&
            status.st_size > 0 && status.st_size < largestFile) {
            m_size = static_cast<size_t>(status.st_size);
            m_bytes = mmap(nullptr, m_size, PROT_READ, MAP_PRIVATE, file, 0);
            if (m_bytes == MAP_FAILED)
                m_size = 0;
        }
        if (file >= 0)
            close(file);
    }
    ~MappedFile() {
        if (m_size > 0)
            munmap(m_bytes, m_size);
    }
    MappedFile(const MappedFile&) = delete;
    MappedFile& operator=(const MappedFile&) = delete;

    // Copies what lies at `offset`; false when the file ends before.
    template <typename T> bool copy(uint64_t offset, T& value) const {
        if (offset > m_size || sizeof value > m_size - offset)
            return false;
        memcpy(&value, static_cast<const char*>(m_bytes) + offset, sizeof value);
        return true;
    }
    // The text that ends with a zero within the file; empty without one.
    std::string text(uint64_t offset) const {
        if (offset >= m_size)
            return "";
        const char* begin = static_cast<const char*>(m_bytes) + offset;
        const void* end = memchr(begin, 0, m_size - offset);
        return end == nullptr ? "" : std::string(begin, static_cast<const char*>(end));
    }

    std::string_view all() const { return {static_cast<const char*>(m_bytes), m_size}; }

  private:
    void* m_bytes = MAP_FAILED;
    size_t m_size = 0;
};

struct Elf64 {
    using Header = Elf64_Ehdr;
    using Segment = Elf64_Phdr;
    using Dynamic = Elf64_Dyn;
};
struct Elf32 {
    using Header = Elf32_Ehdr;
    using Segment = Elf32_Phdr;
    using Dynamic = Elf32_Dyn;
};

template <typename Kind> class Reader {
  public:
    explicit Reader(const MappedFile& file) : m_file(file) {}

    bool read(ElfFile& elf) {
        typename Kind::Header header;
        if (!m_file.copy(0, header))
            return false;
        elf.machine = header.e_machine;
        for (unsigned i = 0; i < header.e_phnum; ++i) {
            typename Kind::Segment segment;
            if (!m_file.copy(header.e_phoff + uint64_t{i} * sizeof segment, segment))
                return false;
            m_segments.push_back(segment);
        }
        for (const auto& segment : m_segments) {
            if (segment.p_type == PT_INTERP)
                elf.interpreter = m_file.text(segment.p_offset);
            else if (segment.p_type == PT_NOTE)
                readNotes(segment.p_offset, segment.p_filesz, elf);
            else if (segment.p_type == PT_DYNAMIC)
                readDynamic(segment.p_offset, segment.p_filesz, elf);
        }
        return true;
    }

  private:
    void readNotes(uint64_t at, uint64_t size, ElfFile& elf) {
        const uint64_t end = at + size;
        Elf32_Nhdr note; // the same in both kinds
        while (at < end && m_file.copy(at, note)) {
            const uint64_t name = at + sizeof note;
            const uint64_t description = name + ((note.n_namesz + uint64_t{3}) & ~uint64_t{3});
            if (note.n_type == versionNoteType && note.n_namesz == sizeof versionNoteName &&
                m_file.text(name) == versionNoteName)
                elf.korVersion = m_file.text(description);
            at = description + ((note.n_descsz + uint64_t{3}) & ~uint64_t{3});
        }
    }

    void readDynamic(uint64_t at, uint64_t size, ElfFile& elf) {
        elf.isDynamic = true;
        std::vector<uint64_t> needed;
        uint64_t strings = 0;
        uint64_t rpath = UINT64_MAX;
        uint64_t runpath = UINT64_MAX;
        typename Kind::Dynamic entry;
        for (uint64_t end = at + size; at < end && m_file.copy(at, entry); at += sizeof entry) {
            if (entry.d_tag == DT_NULL)
                break;
            if (entry.d_tag == DT_NEEDED)
                needed.push_back(entry.d_un.d_val);
            else if (entry.d_tag == DT_STRTAB)
                strings = offsetOf(entry.d_un.d_ptr);
            else if (entry.d_tag == DT_RPATH)
                rpath = entry.d_un.d_val;
            else if (entry.d_tag == DT_RUNPATH)
                runpath = entry.d_un.d_val;
        }
        for (const uint64_t name : needed)
            elf.needed.push_back(m_file.text(strings + name));
        if (runpath != UINT64_MAX)
            elf.runpath = m_file.text(strings + runpath);
        else if (rpath != UINT64_MAX) // the dynamic linker does not look at it otherwise
            elf.rpath = m_file.text(strings + rpath);
    }

    // Where in the file an address of the loaded image lies.
    uint64_t offsetOf(uint64_t address) const {
        for (const auto& segment : m_segments)
            if (segment.p_type == PT_LOAD && address >= segment.p_vaddr &&
                address - segment.p_vaddr < segment.p_filesz)
                return address - segment.p_vaddr + segment.p_offset;
        return UINT32_MAX;
    }

    const MappedFile& m_file;
    std::vector<typename Kind::Segment> m_segments;
};

} // namespace

std::optional<ElfFile> readElf(const std::string& path) {
    const MappedFile file(path);
    unsigned char identification[EI_NIDENT];
    if (!file.copy(0, identification) || memcmp(identification, ELFMAG, SELFMAG) != 0 ||
        identification[EI_DATA] != ELFDATA2LSB)
        return std::nullopt;
    ElfFile elf;
    const bool wide = identification[EI_CLASS] == ELFCLASS64;
    elf.bits = wide ? 64 : 32;
    const bool complete = wide ? Reader<Elf64>(file).read(elf) : Reader<Elf32>(file).read(elf);
    return complete ? std::optional(elf) : std::nullopt;
}

std::vector<std::string> pathsWithin(const std::string& path, const std::string& name) {
    const MappedFile file(path);
    const std::string_view bytes = file.all();
    const std::string ending = "/" + name + std::string(1, '\0');
    std::vector<std::string> paths;
    for (size_t at = bytes.find(ending); at != std::string_view::npos;
         at = bytes.find(ending, at + 1)) {
        const size_t zero = bytes.rfind('\0', at);
        const size_t begin = zero == std::string_view::npos ? 0 : zero + 1;
        const std::string_view text = bytes.substr(begin, at + ending.size() - 1 - begin);
        if (text.front() == '/' && std::find(paths.begin(), paths.end(), text) == paths.end())
            paths.emplace_back(text);
    }
    return paths;
}

} // namespace kordoctor
