#include <db/internal/Join.h>

std::string join(std::initializer_list<std::string_view> parts)
{
    std::string whole;
    for (std::string_view const part : parts)
    {
        whole.append(part);
    }
    return whole;
}
