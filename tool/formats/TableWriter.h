#pragma once

#include <tool/schema/TableSchema.h>
#include <tool/store/FaultFile.h>
#include <tool/terminal/Output.h>
#include <tool/values/Times.h>

#include <history/RowCursor.h>

#include <memory>
#include <string>

namespace tool
{

/// Writes tables in one format. Calls come in this order: `begin`; for each table `beginTable`, `add` for each of its
/// rows, and `endTable`; `end`.
class TableWriter
{
public:
    explicit TableWriter(Output& output) : m_output(output) {}
    virtual ~TableWriter() = default;
    TableWriter(TableWriter const&) = delete;
    TableWriter& operator=(TableWriter const&) = delete;

    virtual void begin() {}
    virtual void beginTable(TableSchema const&) {}
    virtual void add(firaim::RowCursor const& row, TableSchema const& schema) = 0;
    virtual void endTable() {}
    virtual void end() {}

protected:
    Output& m_output;
};

/// One table with a heading line, quoted as in RFC 4180.
std::unique_ptr<TableWriter> makeCsvWriter(Output& output);

/// An object on each line.
std::unique_ptr<TableWriter> makeJsonLinesWriter(Output& output, TimeStyle const& style);

/// One object with a list for each table.
std::unique_ptr<TableWriter> makeJsonWriter(Output& output, TimeStyle const& style);

/// Statements that create the same tables with the same rows and keys. The keys of later rows continue as they would in
/// `file`, which must outlive the writer.
std::unique_ptr<TableWriter> makeSqlWriter(Output& output, FaultFile& file);

} // namespace tool
