#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace firaim
{

/// The module and the parameter of a fault. With its code they form a triple.
using Source = std::pair<std::string, std::string>;
using SourceView = std::pair<std::string_view, std::string_view>;

/// Compares sources without copying their texts.
struct SourceLess
{
    using is_transparent = void;

    template <class A, class B>
    bool operator()(A const& a, B const& b) const
    {
        int const order = std::string_view(a.first).compare(b.first);
        return order < 0 || (order == 0 && std::string_view(a.second) < std::string_view(b.second));
    }
};

/// The active sources of one code, each with the key of the row that made it active.
using Sources = std::map<Source, std::int64_t, SourceLess>;

/// The active triples of code, module and parameter, and the changes of the present transaction.
class ActiveTriples
{
public:
    /// Makes a triple active by the row with that key, or inactive without a key.
    void set(std::uint32_t code, SourceView const& source, std::optional<std::int64_t> key);
    /// As `set`; `rolledBack` undoes it.
    void change(std::uint32_t code, SourceView const& source, std::optional<std::int64_t> key);
    void committed() { m_changes.clear(); }
    void rolledBack();
    void clear();

    /// The key of the row that made a triple active; none if it is not active.
    std::optional<std::int64_t> keyOf(std::uint32_t code, SourceView const& source) const;
    /// The active triples of a code.
    Sources const& of(std::uint32_t code) const;
    std::map<std::uint32_t, Sources> const& all() const { return m_active; }

private:
    struct Change
    {
        std::uint32_t code;
        Source source;
        std::optional<std::int64_t> before;
    };

    std::map<std::uint32_t, Sources> m_active;
    std::vector<Change> m_changes; ///< in this transaction
    Sources const m_none = {};
};

} // namespace firaim
