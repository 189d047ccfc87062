#pragma once

#include <tool/formats/Findings.h>

/// The kinds of findings of `check`.
namespace tool
{

inline constexpr char kRescue[] =
    "'firaim rescue FILE NEW' recovers what the other pages hold, and names what is missing";

inline constexpr FindingKind kPages = {"pages", kRescue, true};
inline constexpr FindingKind kMedium = {
    "medium",
    "the storage fails, which need not mean that the file is damaged: copy what can be "
    "read to another medium with 'firaim rescue FILE NEW'",
    true};
inline constexpr FindingKind kIntegrity = {
    "integrity",
    "the file itself is damaged: keep it, and restore a backup, or recover what can "
    "be read with 'firaim rescue FILE NEW'",
    true};
inline constexpr FindingKind kLost = {"lost", kRescue, true};
inline constexpr FindingKind kWhole = {"whole", "nothing: the damage is elsewhere", false};
inline constexpr FindingKind kLog = {
    "log", "nothing, unless the file was copied while a writer had it open: then copy FILE-wal too", false};
inline constexpr FindingKind kSchema = {
    "schema",
    "the file was not created by the library, or was changed since: create a new one "
    "and record into it what 'firaim export' reads",
    true};
inline constexpr FindingKind kDoubtful = {
    "doubtful", "look at the rows with SQLite's shell; the library and the other commands do not read that table",
    false};
inline constexpr FindingKind kVersion = {
    "version",
    "an application opens it in compatible mode at most: use the software that wrote "
    "it, or restore a backup",
    true};
inline constexpr FindingKind kReference = {
    "reference",
    "'firaim trim' removes no such fault: the count of the statistic is still right, "
    "and the reference is corrected when the fault occurs again",
    true};
inline constexpr FindingKind kRemoved = {
    "removed",
    "nothing: 'firaim trim' removes the faults of inactive statistics, whose counts "
    "stay right",
    false};
inline constexpr FindingKind kStatistic = {
    "statistic",
    "there should be one row for each code: the recorder updates only the first, and "
    "FaultDb::update overwrites all of them",
    true};
inline constexpr FindingKind kCount = {
    "count",
    "trust the faults: a count may be larger than the number of faults, but not smaller; "
    "'firaim rescue FILE NEW' counts anew where a statistic is lost",
    true};
inline constexpr FindingKind kCell = {
    "cell",
    "applications read another value than the file holds: look at the row with 'firaim "
    "export --format sql'",
    true};

} // namespace tool
