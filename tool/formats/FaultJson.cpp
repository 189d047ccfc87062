#include <tool/formats/FaultJson.h>

#include <tool/values/Codes.h>

#include <nlohmann/json.hpp>

#include <algorithm>
#include <limits>
#include <stdexcept>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace tool
{

namespace
{

using firaim::FaultEvent;

/// The value of a field.
struct Value
{
    enum Type
    {
        TEXT,
        NUMBER, ///< a whole number from 0 on
        BOOLEAN,
        OTHER
    };

    Type type = OTHER;
    std::string* text = nullptr; ///< may be moved from
    unsigned long long number = 0;
    bool isTrue = false;
};

using Setter = void (*)(FaultRequest&, Value const&, TimeStyle const&);

std::string& requireText(Value const& value)
{
    if (value.type != Value::TEXT)
    {
        throw std::invalid_argument("must be a text");
    }
    if (value.text->find('\0') != std::string::npos)
    {
        throw std::invalid_argument("has a zero byte, which the file cannot store");
    }
    return *value.text;
}

template <class Number>
Number requireNumber(Value const& value)
{
    // SQLite's integers are signed.
    constexpr auto kMost =
        std::min<unsigned long long>(std::numeric_limits<Number>::max(), std::numeric_limits<std::int64_t>::max());
    if (value.type != Value::NUMBER || value.number > kMost)
    {
        throw std::invalid_argument("must be a whole number from 0 to " + std::to_string(kMost));
    }
    return static_cast<Number>(value.number);
}

template <std::string FaultEvent::*member>
void setText(FaultRequest& request, Value const& value, TimeStyle const&)
{
    request.event.*member = std::move(requireText(value));
}

/// An empty text counts as absent.
template <std::optional<std::string> FaultEvent::*member>
void setOptionalText(FaultRequest& request, Value const& value, TimeStyle const&)
{
    std::string& text = requireText(value);
    if (!text.empty())
    {
        request.event.*member = std::move(text);
    }
}

template <class Number, std::optional<Number> FaultEvent::*member>
void setNumber(FaultRequest& request, Value const& value, TimeStyle const&)
{
    request.event.*member = requireNumber<Number>(value);
}

void setCode(FaultRequest& request, Value const& value, TimeStyle const&)
{
    if (value.type != Value::TEXT)
    {
        request.event.code = requireNumber<unsigned int>(value);
        return;
    }
    std::string const& text = requireText(value);
    std::optional<unsigned int> const code = codeOf(text);
    if (!code)
    {
        throw std::invalid_argument(unknownCodeText(text));
    }
    request.event.code = *code;
}

void setStatus(FaultRequest& request, Value const& value, TimeStyle const&)
{
    std::string const& text = requireText(value);
    if (text != "ErrorActive" && text != "ErrorInactive")
    {
        throw std::invalid_argument("must be \"ErrorActive\" or \"ErrorInactive\"");
    }
    request.event.status = text == "ErrorActive" ? FAULT_ACTIVE : FAULT_INACTIVE;
}

void setInactive(FaultRequest& request, Value const& value, TimeStyle const&)
{
    if (value.type != Value::BOOLEAN)
    {
        throw std::invalid_argument("must be true or false");
    }
    request.event.status = value.isTrue ? FAULT_INACTIVE : FAULT_ACTIVE;
}

void setTime(FaultRequest& request, Value const& value, TimeStyle const& style)
{
    std::optional<Period> const period = parseTime(requireText(value), style);
    if (!period || period->begin < 0)
    {
        throw std::invalid_argument("must be a time from 1970 on, such as \"2031-05-04T03:02:01Z\"");
    }
    request.time = period->begin;
}

void ignore(FaultRequest&, Value const&, TimeStyle const&) {}

constexpr Setter kSetStamp = setNumber<unsigned long long, &FaultEvent::time>;
constexpr Setter kSetStartup = setNumber<unsigned int, &FaultEvent::startupId>;
constexpr Setter kSetUpTime = setNumber<unsigned int, &FaultEvent::upTime>;
constexpr Setter kSetLifeTime = setNumber<unsigned int, &FaultEvent::lifeTime>;

std::unordered_map<std::string_view, Setter> const& setters()
{
    static std::unordered_map<std::string_view, Setter> const map = {
        {"EntryId", ignore},
        {"FaultCode", setCode},
        {"code", setCode},
        {"FaultCodeName", setOptionalText<&FaultEvent::codeName>},
        {"ModuleName", setText<&FaultEvent::module>},
        {"module", setText<&FaultEvent::module>},
        {"Parameter", setText<&FaultEvent::parameter>},
        {"param", setText<&FaultEvent::parameter>},
        {"Description", setText<&FaultEvent::description>},
        {"description", setText<&FaultEvent::description>},
        {"Status", setStatus},
        {"inactive", setInactive},
        {"RdbStartupId", kSetStartup},
        {"startup", kSetStartup},
        {"TimeStampUTC", kSetStamp},
        {"Time", setTime},
        {"time", setTime},
        {"TimeZone", setOptionalText<&FaultEvent::timeZone>},
        {"time-zone", setOptionalText<&FaultEvent::timeZone>},
        {"DateTimeString", setOptionalText<&FaultEvent::dateTimeText>},
        {"SystemDateTimeString", setOptionalText<&FaultEvent::systemTimeText>},
        {"DiagSignalsDumpFileName", setText<&FaultEvent::signalsFile>},
        {"signals-file", setText<&FaultEvent::signalsFile>},
        {"CfgBackupFile", setText<&FaultEvent::configBackup>},
        {"config-backup", setText<&FaultEvent::configBackup>},
        {"LoggerUpTime", kSetUpTime},
        {"up-time", kSetUpTime},
        {"LoggerLifeTime", kSetLifeTime},
        {"life-time", kSetLifeTime}};
    return map;
}

constexpr char kNotAnObject[] = "not a JSON object";

/// Stores the fields while the line is parsed, without a copy of the whole object. Invalid JSON anywhere in the line is
/// reported first, so the problem of a value is kept until the end.
class FaultHandler : public nlohmann::json_sax<nlohmann::json>
{
public:
    FaultHandler(FaultRequest& request, TimeStyle const& style) : m_request(request), m_style(style)
    {
        m_seen.reserve(setters().size());
    }

    /// Throws std::invalid_argument unless the line is a fault.
    void finish() const
    {
        if (!m_isObject)
        {
            throw std::invalid_argument(kNotAnObject);
        }
        if (!m_hasCode)
        {
            throw std::invalid_argument("FaultCode is missing");
        }
        if (!m_problem.empty())
        {
            throw std::invalid_argument(m_problem);
        }
    }

    bool null() override
    {
        requireKnown(); // An export writes null for an empty cell and for a time that was not set.
        return true;
    }
    bool boolean(bool isTrue) override
    {
        Value value;
        value.type = Value::BOOLEAN;
        value.isTrue = isTrue;
        return take(value);
    }
    bool number_integer(number_integer_t) override { return take({}); }
    bool number_unsigned(number_unsigned_t number) override
    {
        Value value;
        value.type = Value::NUMBER;
        value.number = number;
        return take(value);
    }
    bool number_float(number_float_t, string_t const&) override { return take({}); }
    bool string(string_t& text) override
    {
        Value value;
        value.type = Value::TEXT;
        value.text = &text;
        return take(value);
    }
    bool binary(binary_t&) override { return take({}); }

    bool start_object(std::size_t) override
    {
        requireTopLevel();
        m_isObject = true;
        return true;
    }
    bool start_array(std::size_t) override
    {
        requireTopLevel();
        m_isInList = true;
        return true;
    }
    bool end_object() override { return true; }
    bool end_array() override { return true; }

    bool key(string_t& name) override
    {
        auto const setter = setters().find(name);
        m_setter = setter == setters().end() ? nullptr : setter->second;
        m_name = name;
        if (m_setter != nullptr && std::find(m_seen.begin(), m_seen.end(), m_setter) != m_seen.end())
        {
            throw std::invalid_argument("'" + name + "' is given twice");
        }
        m_seen.push_back(m_setter);
        return true;
    }

    bool parse_error(std::size_t position, std::string const&, nlohmann::detail::exception const& problem) override
    {
        // The parser's error for a number that is too large.
        constexpr int kOutOfRange = 406;
        throw std::invalid_argument(problem.id == kOutOfRange ? "number out of range"
                                                              : "not valid JSON at byte " + std::to_string(position));
    }

private:
    /// Reject deep nesting early to bound memory.
    void requireTopLevel()
    {
        if (m_isObject)
        {
            throw std::invalid_argument("the value of a field is a list or an object");
        }
        if (m_isInList)
        {
            throw std::invalid_argument(kNotAnObject);
        }
    }

    bool requireKnown()
    {
        if (m_isObject && m_setter == nullptr)
        {
            keepProblem("unknown field '" + m_name + "'");
        }
        return m_isObject && m_setter != nullptr;
    }

    bool take(Value const& value)
    {
        // A code with an invalid value is not missing.
        m_hasCode = m_hasCode || m_setter == setCode;
        if (requireKnown())
        {
            try
            {
                m_setter(m_request, value, m_style);
            }
            catch (std::invalid_argument const& problem)
            {
                keepProblem(m_name + ": " + problem.what());
            }
        }
        return true;
    }

    void keepProblem(std::string const& problem)
    {
        if (m_problem.empty())
        {
            m_problem = problem;
        }
    }

    FaultRequest& m_request;
    TimeStyle const& m_style;
    std::vector<Setter> m_seen;
    Setter m_setter = nullptr; ///< of the current field; null for an unknown one
    std::string m_name;        ///< of that field
    std::string m_problem;     ///< the first one
    bool m_isObject = false;
    bool m_isInList = false; ///< inside of a list
    bool m_hasCode = false;
};

} // namespace

FaultRequest readFault(std::string const& line, TimeStyle const& style)
{
    FaultRequest request;
    FaultHandler handler(request, style);
    static_cast<void>(nlohmann::json::sax_parse(line, &handler)); // The handler throws on errors.
    handler.finish();
    return request;
}

} // namespace tool
