#include "Script.h"

#include <array>
#include <cstdio>

namespace soak
{

namespace
{

using firaim::FaultEvent;

constexpr std::uint64_t kRecordCode = 100; ///< and the following; recorded with any status, so storms concern them
constexpr std::uint64_t kEdgeCode = 200;   ///< and the following
constexpr std::uint64_t kEdgeCodes = 2;
constexpr unsigned int kLongText = 6000; ///< longer than a page

/// A small random generator that is the same on every machine, and quick to seed.
class Random
{
public:
    Random(std::uint64_t seed, Identity const& identity) : m_state(seed)
    {
        for (unsigned int const number : {identity.worker, identity.incarnation, identity.thread, identity.number})
        {
            m_state = next() ^ number;
        }
    }

    unsigned int below(unsigned int limit) { return static_cast<unsigned int>(next() % limit); }

private:
    std::uint64_t next()
    {
        m_state += 0x9E3779B97F4A7C15U;
        std::uint64_t mixed = m_state;
        mixed = (mixed ^ (mixed >> 30U)) * 0xBF58476D1CE4E5B9U;
        mixed = (mixed ^ (mixed >> 27U)) * 0x94D049BB133111EBU;
        return mixed ^ (mixed >> 31U);
    }

    std::uint64_t m_state;
};

Step::Kind kindOf(unsigned int percent)
{
    struct Share
    {
        unsigned int below;
        Step::Kind kind;
    };
    constexpr std::array<Share, 7> kShares = {{{30, Step::RECORD},
                                               {46, Step::RAISE},
                                               {62, Step::CLEAR},
                                               {72, Step::GROUP},
                                               {88, Step::POST},
                                               {93, Step::FLUSH},
                                               {96, Step::END_CYCLE}}};
    for (Share const& share : kShares)
    {
        if (percent < share.below)
        {
            return share.kind;
        }
    }
    return Step::CLEAR_CODE;
}

bool isEdge(Step::Kind kind)
{
    return kind == Step::RAISE || kind == Step::CLEAR || kind == Step::CLEAR_CODE;
}

unsigned int textLength(Random& random)
{
    return random.below(100) == 0 ? kLongText : random.below(300);
}

/// Both processes raise and clear the same triples; each records triples of its own.
FaultEvent eventOf(Step::Kind kind, Identity const& identity, Random& random)
{
    FaultEvent event;
    std::string const name = textOf(identity);
    event.code = isEdge(kind) ? kEdgeCode + random.below(kEdgeCodes) : kRecordCode + random.below(4);
    event.module = isEdge(kind) ? "shared" : "worker " + std::to_string(identity.worker);
    event.parameter = "p" + std::to_string(random.below(4));
    event.status = random.below(2) == 0 ? FAULT_ACTIVE : FAULT_INACTIVE;
    if (isEdge(kind))
    {
        event.status = kind == Step::RAISE ? FAULT_ACTIVE : FAULT_INACTIVE;
    }
    event.signalsFile = name;
    event.description = name + ' ' + std::string(textLength(random), static_cast<char>('a' + random.below(26)));
    event.configBackup = "it's \"" + std::to_string(random.below(1000)) + '"';
    event.lifeTime = identity.number;
    return event;
}

} // namespace

std::string textOf(Identity const& identity)
{
    return std::to_string(identity.worker) + '.' + std::to_string(identity.incarnation) + '.' +
           std::to_string(identity.thread) + '.' + std::to_string(identity.number) + '.' +
           std::to_string(identity.part);
}

std::optional<Identity> identityOf(std::string const& text)
{
    Identity identity;
    int end = 0;
    int const read = std::sscanf(text.c_str(), "%u.%u.%u.%u.%u%n", &identity.worker, &identity.incarnation,
                                 &identity.thread, &identity.number, &identity.part, &end);
    bool const isWhole = read == 5 && static_cast<std::size_t>(end) == text.size();
    return isWhole ? std::optional(identity) : std::nullopt;
}

Step stepOf(std::uint64_t seed, Identity const& identity)
{
    Random random(seed, identity);
    Step step;
    step.kind = kindOf(random.below(100));
    step.pauseUs = random.below(3000);
    if (step.kind == Step::FLUSH || step.kind == Step::END_CYCLE)
    {
        return step;
    }
    unsigned int const count = step.kind == Step::GROUP ? 2 + random.below(4) : 1;
    for (unsigned int part = 0; part < count; ++part)
    {
        Identity named = identity;
        named.part = part;
        step.events.push_back(eventOf(step.kind, named, random));
    }
    return step;
}

bool isEdgeCode(std::uint64_t code)
{
    return code >= kEdgeCode && code < kEdgeCode + kEdgeCodes;
}

} // namespace soak
