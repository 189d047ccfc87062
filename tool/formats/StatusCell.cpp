#include <tool/formats/StatusCell.h>

namespace tool
{

namespace
{

Style styleOf(faultStatus_t status)
{
    return status == FAULT_ACTIVE ? Style::ALARM : Style::FAINT;
}

} // namespace

TextTable::Cell statusCell(faultStatus_t status)
{
    return {status == FAULT_ACTIVE ? "active" : "inactive", styleOf(status)};
}

TextTable::Cell storedStatusCell(faultStatus_t status)
{
    return {status == FAULT_ACTIVE ? "ErrorActive" : "ErrorInactive", styleOf(status)};
}

} // namespace tool
