#pragma once

namespace tool
{

class CommandLine;
struct Request;

// Each adds one command to the program; `request` runs it if it is chosen.
void addBackup(CommandLine& line, Request& request);
void addCheck(CommandLine& line, Request& request);
void addClear(CommandLine& line, Request& request);
void addCodes(CommandLine& line, Request& request);
void addCreate(CommandLine& line, Request& request);
void addExport(CommandLine& line, Request& request);
void addJournal(CommandLine& line, Request& request);
void addList(CommandLine& line, Request& request);
void addRecord(CommandLine& line, Request& request);
void addRecover(CommandLine& line, Request& request);
void addRenumber(CommandLine& line, Request& request);
void addRescue(CommandLine& line, Request& request);
void addShow(CommandLine& line, Request& request);
void addStats(CommandLine& line, Request& request);
void addSummary(CommandLine& line, Request& request);
void addTrim(CommandLine& line, Request& request);
void addWatch(CommandLine& line, Request& request);

} // namespace tool
