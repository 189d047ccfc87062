#include "FaultJson.h"

#include "Codes.h"
#include "Json.h"

#include <algorithm>
#include <limits>
#include <map>
#include <set>
#include <stdexcept>

namespace tool
{

namespace
{

using setter_t = void (*)(FaultRequest&, json_t const&, TimeStyle const&);

std::string textIn(json_t const& value)
{
    if (!value.is_string())
    {
        throw std::invalid_argument("must be a text");
    }
    auto const& text = value.get_ref<std::string const&>();
    if (text.find('\0') != std::string::npos)
    {
        throw std::invalid_argument("holds a zero byte, which a text in the file cannot");
    }
    return text;
}

template <class Number>
Number numberIn(json_t const& value)
{
    // SQLite's integers have a sign.
    constexpr auto kMost =
        std::min<unsigned long long>(std::numeric_limits<Number>::max(), std::numeric_limits<std::int64_t>::max());
    if (!value.is_number_unsigned() || value.get<unsigned long long>() > kMost)
    {
        throw std::invalid_argument("must be a whole number from 0 to " + std::to_string(kMost));
    }
    return static_cast<Number>(value.get<unsigned long long>());
}

template <std::string Fault::*member>
void setText(FaultRequest& request, json_t const& value, TimeStyle const&)
{
    request.fault.*member = textIn(value);
}

template <unsigned int Fault::*member>
void setNumber(FaultRequest& request, json_t const& value, TimeStyle const&)
{
    request.fault.*member = numberIn<unsigned int>(value);
}

void setCode(FaultRequest& request, json_t const& value, TimeStyle const&)
{
    if (!value.is_string())
    {
        request.fault.FaultCode = static_cast<faultCode_t>(numberIn<unsigned int>(value));
        return;
    }
    std::optional<unsigned int> const code = codeOf(textIn(value));
    if (!code)
    {
        throw std::invalid_argument(unknownCodeText(textIn(value)));
    }
    request.fault.FaultCode = static_cast<faultCode_t>(*code);
}

void setStatus(FaultRequest& request, json_t const& value, TimeStyle const&)
{
    std::string const text = textIn(value);
    if (text != "ErrorActive" && text != "ErrorInactive")
    {
        throw std::invalid_argument("must be \"ErrorActive\" or \"ErrorInactive\"");
    }
    request.fault.Status = text == "ErrorActive" ? FAULT_ACTIVE : FAULT_INACTIVE;
}

void setInactive(FaultRequest& request, json_t const& value, TimeStyle const&)
{
    if (!value.is_boolean())
    {
        throw std::invalid_argument("must be true or false");
    }
    request.fault.Status = value.get<bool>() ? FAULT_INACTIVE : FAULT_ACTIVE;
}

void setStamp(FaultRequest& request, json_t const& value, TimeStyle const&)
{
    request.stamp = numberIn<unsigned long long>(value);
}

void setTime(FaultRequest& request, json_t const& value, TimeStyle const& style)
{
    std::optional<period_t> const period = parseTime(textIn(value), style);
    if (!period || period->begin < 0)
    {
        throw std::invalid_argument("must be a time from 1970 on, such as \"2031-05-04T03:02:01Z\"");
    }
    request.time = period->begin;
}

void setStartup(FaultRequest& request, json_t const& value, TimeStyle const&)
{
    request.startup = numberIn<unsigned int>(value);
}

void passOver(FaultRequest&, json_t const&, TimeStyle const&) {}

std::map<std::string, setter_t> const& setters()
{
    static std::map<std::string, setter_t> const map = {
        {"EntryId", passOver},
        {"FaultCode", setCode},
        {"code", setCode},
        {"FaultCodeName", setText<&Fault::FaultCodeName>},
        {"ModuleName", setText<&Fault::ModuleName>},
        {"module", setText<&Fault::ModuleName>},
        {"Parameter", setText<&Fault::Parameter>},
        {"param", setText<&Fault::Parameter>},
        {"Description", setText<&Fault::Description>},
        {"description", setText<&Fault::Description>},
        {"Status", setStatus},
        {"inactive", setInactive},
        {"RdbStartupId", setStartup},
        {"startup", setStartup},
        {"TimeStampUTC", setStamp},
        {"Time", setTime},
        {"time", setTime},
        {"TimeZone", setText<&Fault::TimeZone>},
        {"time-zone", setText<&Fault::TimeZone>},
        {"DateTimeString", setText<&Fault::DateTimeString>},
        {"SystemDateTimeString", setText<&Fault::SystemDateTimeString>},
        {"DiagSignalsDumpFileName", setText<&Fault::DiagSignalsDumpFileName>},
        {"signals-file", setText<&Fault::DiagSignalsDumpFileName>},
        {"CfgBackupFile", setText<&Fault::CfgBackupFile>},
        {"config-backup", setText<&Fault::CfgBackupFile>},
        {"LoggerUpTime", setNumber<&Fault::LoggerUpTime>},
        {"up-time", setNumber<&Fault::LoggerUpTime>},
        {"LoggerLifeTime", setNumber<&Fault::LoggerLifeTime>},
        {"life-time", setNumber<&Fault::LoggerLifeTime>}};
    return map;
}

json_t parse(std::string const& line)
{
    std::set<setter_t> met;
    auto const lookAhead = [&met](int depth, json_t::parse_event_t event, json_t const& value)
    {
        // Before what is deeper than a fault can be takes much memory.
        if (depth > 0 && (event == json_t::parse_event_t::object_start || event == json_t::parse_event_t::array_start))
        {
            throw std::invalid_argument("a field holds a list or an object");
        }
        auto const setter =
            event == json_t::parse_event_t::key ? setters().find(value.get_ref<std::string const&>()) : setters().end();
        if (setter != setters().end() && !met.insert(setter->second).second)
        {
            throw std::invalid_argument("'" + setter->first + "' is given twice");
        }
        return true;
    };
    try
    {
        return json_t::parse(line, lookAhead);
    }
    catch (json_t::parse_error const& problem)
    {
        throw std::invalid_argument("no JSON, at byte " + std::to_string(problem.byte));
    }
    catch (json_t::exception const&)
    {
        throw std::invalid_argument("a number is larger than any number can be");
    }
}

} // namespace

FaultRequest readFault(std::string const& line, TimeStyle const& style)
{
    json_t const object = parse(line);
    if (!object.is_object())
    {
        throw std::invalid_argument("no JSON object");
    }
    if (object.value("FaultCode", json_t()).is_null() && object.value("code", json_t()).is_null())
    {
        throw std::invalid_argument("FaultCode is missing");
    }
    FaultRequest request;
    request.fault.Status = FAULT_ACTIVE;
    for (auto const& [name, value] : object.items())
    {
        auto const setter = setters().find(name);
        if (setter == setters().end())
        {
            throw std::invalid_argument("unknown field '" + name + "'");
        }
        try
        {
            if (value.is_null())
            {
                continue; // What a column did not hold, and a time that was not set, are exported so.
            }
            setter->second(request, value, style);
        }
        catch (std::invalid_argument const& problem)
        {
            throw std::invalid_argument(name + ": " + problem.what());
        }
    }
    return request;
}

} // namespace tool
