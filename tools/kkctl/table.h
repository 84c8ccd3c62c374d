#pragma once

#include <ostream>
#include <string>
#include <vector>

namespace kkctl {

enum class Align { Left, Right };

struct Column {
    std::string title;
    Align align = Align::Left;
};

/// Rows of text in columns as wide as their widest cell.
class Table {
public:
    explicit Table(std::vector<Column> columns);

    /// Adds one row, a cell for each column. Control characters in cells are made harmless.
    void AddRow(const std::vector<std::string>& cells);

    void Print(std::ostream& out) const;

private:
    std::vector<Column> columns_;
    std::vector<std::vector<std::string>> rows_;  // the titles first
};

}  // namespace kkctl
