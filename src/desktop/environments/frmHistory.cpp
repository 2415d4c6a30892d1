#include "desktop/environments/frmHistory.h"

#include <QHeaderView>
#include <QTableWidgetItem>

namespace dorvane {

frmHistory::frmHistory(const std::vector<HistoryEntry>& entries, QWidget* parent) : QDialog(parent)
{
    setupUi(this);
    grdHistory->setRowCount(int(entries.size()));
    int row = 0;
    for (const HistoryEntry& entry : entries) {
        // The time as this machine shows it; the entry keeps UTC.
        const QStringList fields =
            HistoryFields(entry, entry.when.toLocalTime().toString(QStringLiteral("yyyy-MM-dd HH:mm:ss")), 1);
        for (int column = 0; column < int(fields.size()); ++column) {
            auto* item = new QTableWidgetItem(fields.at(column));
            item->setFlags(Qt::ItemIsSelectable | Qt::ItemIsEnabled);
            if (column >= 9)
                item->setTextAlignment(Qt::AlignRight | Qt::AlignVCenter);
            grdHistory->setItem(row, column, item);
        }
        ++row;
    }
    grdHistory->resizeColumnsToContents();
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
}

} // namespace dorvane
