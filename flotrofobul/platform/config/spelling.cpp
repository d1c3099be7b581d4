// SPDX-License-Identifier: MIT
#include <flotrofobul/platform/config/spelling.h>

#include <algorithm>
#include <vector>

namespace comunication {
namespace config {

namespace {

QString lastPiece(const QString& path)
{
    return path.mid(path.lastIndexOf(u'.') + 1).toLower();
}

// Letters that are missing, too many, wrong, or in the place of their neighbour.
int slipsBetween(const QString& left, const QString& right)
{
    std::vector<std::vector<int>> table(static_cast<std::size_t>(left.size()) + 1,
                                        std::vector<int>(static_cast<std::size_t>(right.size()) + 1));
    const auto at = [&](int row, int column) -> int& {
        return table[static_cast<std::size_t>(row)][static_cast<std::size_t>(column)];
    };
    for (int row = 0; row <= left.size(); ++row) {
        for (int column = 0; column <= right.size(); ++column) {
            if (row == 0 || column == 0) {
                at(row, column) = row + column;
                continue;
            }
            const int wrong = left[row - 1] == right[column - 1] ? 0 : 1;
            at(row, column) =
                std::min({at(row - 1, column) + 1, at(row, column - 1) + 1, at(row - 1, column - 1) + wrong});
            if (row > 1 && column > 1 && left[row - 1] == right[column - 2] && left[row - 2] == right[column - 1]) {
                at(row, column) = std::min(at(row, column), at(row - 2, column - 2) + 1);
            }
        }
    }
    return at(left.size(), right.size());
}

} // namespace

QString probablyMeant(const QString& path, const QStringList& knownPaths)
{
    constexpr int longestKey = 64;
    const QString key = lastPiece(path);
    if (key.size() > longestKey) {
        return QString();
    }
    const QString section = path.left(path.lastIndexOf(u'.') + 1);
    QString nearest;
    int fewest = std::max<int>(key.size() / 3, 1) * 2 + 1; // half slips: one more for a key of another section
    for (const QString& known : knownPaths) {
        const int slips = 2 * slipsBetween(key, lastPiece(known)) + (known.startsWith(section) ? 0 : 1);
        if (slips < fewest || (slips == fewest && nearest.isEmpty())) {
            fewest = slips;
            nearest = known;
        }
    }
    return nearest;
}

} // namespace config
} // namespace comunication
