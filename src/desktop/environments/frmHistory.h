#pragma once

#include "core/repository/History.h"

#include "ui_frmHistory.h"

#include <QDialog>

#include <vector>

class QWidget;

namespace dorvane {

// The history of operations, newest first, one row per entry and one
// column per field; nothing in it can be changed.
class frmHistory : public QDialog, public Ui::frmHistory {
    Q_OBJECT
public:
    explicit frmHistory(const std::vector<HistoryEntry>& entries, QWidget* parent = nullptr);
};

} // namespace dorvane
