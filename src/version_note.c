/* The version of the part that this is linked into, as an ELF note: whoever wonders whether parts
 * belong together reads it from the file, whatever its word size, without loading it. */
#include <stdint.h>

enum { versionNote = 1 };

__attribute__((section(".note.kor-gl"), used, aligned(4))) static const struct {
    uint32_t nameSize;
    uint32_t versionSize;
    uint32_t type;
    char name[8];
    char version[(sizeof KOR_VERSION + 3) / 4 * 4];
} note = {sizeof "KOR-GL", sizeof KOR_VERSION, versionNote, "KOR-GL", KOR_VERSION};
