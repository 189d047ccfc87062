#pragma once

#include <cstddef>
#include <string>
#include <string_view>

/// The input of fuzz_rescue: one byte for the kind of the file beside the database, three for the length of the
/// database, and the bytes of both files. An empty file beside the database is no file.
struct RescueInput
{
    enum Kind
    {
        JOURNAL,
        LOG
    };

    explicit RescueInput(std::string_view input)
    {
        constexpr std::size_t kHeaderSize = 4;
        if (input.size() < kHeaderSize)
        {
            return;
        }
        kind = input[0] % 2 == 0 ? JOURNAL : LOG;
        std::size_t size = 0;
        for (char const byte : input.substr(1, kHeaderSize - 1))
        {
            size = size << 8 | static_cast<unsigned char>(byte);
        }
        database = input.substr(kHeaderSize, size);
        beside = input.substr(kHeaderSize + database.size());
    }

    Kind kind = JOURNAL;
    std::string_view database;
    std::string_view beside;
};

inline std::string rescueInput(std::string const& database, RescueInput::Kind kind, std::string const& beside)
{
    std::string input(1, static_cast<char>(kind));
    for (unsigned int const shift : {16U, 8U, 0U})
    {
        input += static_cast<char>(database.size() >> shift & 0xff);
    }
    return input + database + beside;
}
