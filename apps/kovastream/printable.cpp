#include "printable.h"

namespace kovastream {

std::string Printable(std::string text, std::string_view kept)
{
    for (char &c : text) {
        const bool control = static_cast<unsigned char>(c) < 0x20 || c == 0x7F;
        if (control && kept.find(c) == std::string_view::npos)
            c = '?';
    }
    return text;
}

} // namespace kovastream
