#include "table.h"

#include <algorithm>

#include "text.h"

namespace kkctl {

Table::Table(std::vector<Column> columns) : columns_(std::move(columns))
{
    std::vector<std::string>& titles = rows_.emplace_back();
    for (const Column& column : columns_) {
        titles.push_back(column.title);
    }
}

void Table::AddRow(const std::vector<std::string>& cells)
{
    std::vector<std::string>& row = rows_.emplace_back();
    for (const std::string& cell : cells) {
        row.push_back(Printable(cell));
    }
}

void Table::Print(std::ostream& out) const
{
    std::vector<size_t> widths(columns_.size());
    for (const std::vector<std::string>& row : rows_) {
        for (size_t i = 0; i < row.size(); ++i) {
            widths[i] = std::max(widths[i], DisplayWidth(row[i]));
        }
    }
    for (const std::vector<std::string>& row : rows_) {
        std::string line;
        for (size_t i = 0; i < row.size(); ++i) {
            const std::string padding(widths[i] - DisplayWidth(row[i]), ' ');
            line += columns_[i].align == Align::Right ? padding + row[i] : row[i] + padding;
            line += "  ";
        }
        line.erase(line.find_last_not_of(' ') + 1);
        out << line << '\n';
    }
}

}  // namespace kkctl
