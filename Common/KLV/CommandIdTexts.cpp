#include "Common/KLV/CommandIdTexts.h"

#include <algorithm>
#include <array>

namespace {

struct Row
{
    CommandID id;
    const char* text;
};

constexpr Row Rows[] = {
#define COMMAND_ID(id, text) {id, text},
#include "Common/KLV/CommandIdRows.inc"
#undef COMMAND_ID
};

constexpr std::size_t RowCount = std::size(Rows);
static_assert(RowCount == 543);

bool Before(const Row& a, const Row& b)
{
    return a.id < b.id;
}

/// By number; rows of one number keep their order.
std::array<Row, RowCount> SortedRows()
{
    std::array<Row, RowCount> rows{};
    std::copy(std::begin(Rows), std::end(Rows), rows.begin());
    std::stable_sort(rows.begin(), rows.end(), Before);
    return rows;
}

} // namespace

const char* CommandIdToText(CommandID id)
{
    static const std::array<Row, RowCount> Sorted = SortedRows();
    const auto row = std::lower_bound(Sorted.begin(), Sorted.end(), Row{id, nullptr}, Before);
    return row != Sorted.end() && row->id == id ? row->text : "Unknown";
}
