// dlopen_note.h - tells packagers of a file that is loaded when it is needed: an ELF note as other
// libraries carry it, so that their tools find what the list of needed libraries does not name.
// `readelf -n` shows it.
#ifndef ZORV_CORE_DLOPEN_NOTE_H
#define ZORV_CORE_DLOPEN_NOTE_H

#include <algorithm>
#include <cstddef>

namespace zorv {

template <size_t Size>
struct DlopenNote {
    unsigned owner_size, description_size, type;
    char owner[4];
    char description[(Size + 3) / 4 * 4];
};

// Of a JSON text. The variable that takes it is a ZORV_DLOPEN_NOTE.
template <size_t Size>
constexpr DlopenNote<Size> dlopen_note(const char (&text)[Size])
{
    DlopenNote<Size> note = {4, Size, 0x407c0c0a, "FDO", ""};
    std::copy_n(text, Size, note.description);
    return note;
}

#define ZORV_DLOPEN_NOTE [[gnu::used, gnu::section(".note.dlopen"), gnu::aligned(4)]] constexpr auto

} // namespace zorv

#endif
