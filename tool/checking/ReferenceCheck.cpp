#include <tool/checking/ReferenceCheck.h>

#include <tool/schema/TableSchema.h>

namespace tool
{

void findMissingReferences(sqlite::Connection const& connection,
                           std::function<void(MissingReference const&)> const& take)
{
    sqlite::Statement statement = connection.prepare(
        "SELECT s.EntryId, s.FaultCode, s.FaultEntryId, s.FaultActive IS NOT 'active' AND s.FaultEntryId BETWEEN 1 AND "
        "(SELECT seq FROM sqlite_sequence WHERE name = ?1) FROM " +
        statisticSchema().name + " s WHERE s.FaultEntryId <> 0 AND NOT EXISTS (SELECT 1 FROM " + faultSchema().name +
        " f WHERE f.EntryId = s.FaultEntryId)");
    statement.bind(1, faultSchema().name);
    while (statement.step())
    {
        take({statisticSchema().name + " row " + std::string(statement.text(0)) + " (FaultCode " +
                  std::string(statement.text(1)) + ") refers to fault " + std::string(statement.text(2)) +
                  ", which is missing",
              statement.integer(2), statement.integer(3) != 0});
    }
}

void findSharedCodes(sqlite::Connection const& connection, std::function<void(std::string const&)> const& take)
{
    sqlite::Statement statement = connection.prepare("SELECT FaultCode, count(*) FROM " + statisticSchema().name +
                                                     " GROUP BY FaultCode HAVING count(*) > 1");
    while (statement.step())
    {
        take("FaultCode " + std::string(statement.text(0)) + " has " + std::string(statement.text(1)) + " rows in " +
             statisticSchema().name);
    }
}

std::vector<std::string> readFormatVersions(sqlite::Connection const& connection)
{
    sqlite::Statement statement =
        connection.prepare("SELECT Version FROM " + versionSchema().name + " WHERE Component LIKE 'FormatVersion'");
    std::vector<std::string> versions;
    while (statement.step())
    {
        versions.emplace_back(statement.text(0));
    }
    return versions;
}

} // namespace tool
