#include "bench/BadgeMix.h"

#include <array>
#include <cstdio>
#include <stdexcept>

namespace findersync::bench {

namespace {

struct Spelling {
    std::string_view name;
    std::string_view item;
    std::string_view evenRoot, oddRoot; ///< a number follows; of the same length
};

constexpr std::array<Spelling, 3> spellings = {{
    {.name = "ascii",
     .item = "/home/anna/Documents/Customers/Quarterly reports/2026/Figures",
     .evenRoot = "/home/anna/Documents/Customers/Quarterly reports/2026/Folder ",
     .oddRoot = "/home/anna/Documents/Customers/Quarterly reports/2026/Figure "},
    {.name = "composed",
     .item = "/home/anna/Dokumente/Verträge/Geschäftsführung/ガイドブック/資料",
     .evenRoot = "/home/anna/Dokumente/Verträge/Geschäftsführung/ガイドブック/写真 ",
     .oddRoot = "/home/anna/Dokumente/Verträge/Geschäftsführung/ガイドブック/Ordner "},
    {.name = "decomposed",
     .item = "/home/anna/Dokumente/Verträge/Geschäftsführung/ガイドブック/資料",
     .evenRoot = "/home/anna/Dokumente/Vertra\u0308ge/Gescha\u0308ftsfu\u0308hrung/"
                 "カ\u3099イト\u3099フ\u3099ック/写真 ",
     .oddRoot = "/home/anna/Dokumente/Vertra\u0308ge/Gescha\u0308ftsfu\u0308hrung/"
                "カ\u3099イト\u3099フ\u3099ック/Ordner "},
}};

std::string numbered(std::string_view text, std::size_t number) {
    char digits[sizeof "0000"];
    (void)std::snprintf(digits, sizeof digits, "%04zu", number % 10'000);
    return std::string(text) + digits;
}

} // namespace

BadgeMix badgeMix(std::string_view name, std::size_t rootCount) {
    for (const Spelling& spelling : spellings) {
        if (spelling.name != name)
            continue;
        BadgeMix mix = {.name = spelling.name, .item = std::string(spelling.item), .roots = {}};
        for (std::size_t number = 0; number < rootCount; ++number)
            mix.roots.push_back(
                numbered(number % 2 == 0 ? spelling.evenRoot : spelling.oddRoot, number));
        return mix;
    }
    throw std::invalid_argument("there is no such mix of paths: " + std::string(name));
}

} // namespace findersync::bench
