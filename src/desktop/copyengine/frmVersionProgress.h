#pragma once

#include "core/repository/Interaction.h"
#include "ui_frmVersionProgress.h"

#include <QDialog>
#include <QElapsedTimer>

namespace dorvane {

// The copy engine's progress window: what is being copied and how far.
// It has no behaviour of its own; the engine writes into it.
//
// The engine refreshes it and yields after every row, hundreds of
// thousands of times a second; painting and running the event loop that
// often would cost more than the copy. The bar takes the engine's value
// and the window repaints and lets the event loop run a few times a
// second only, and at once when it is shown or a new step begins.
class frmVersionProgress : public QDialog, public ProgressSink, private Ui::frmVersionProgress {
    Q_OBJECT
public:
    explicit frmVersionProgress(QWidget* parent = nullptr);

    void SetTitle(const QString& title) override;
    void ShowWindow() override;
    void SetAction(const QString& text) override;
    void SetRange(float minimum, float maximum) override;
    void SetValue(float value) override;
    float Value() const override { return m_value; }
    float Maximum() const override { return m_maximum; }
    void Refresh() override;
    void Yield() override;
    void HideWindow() override;

private:
    void updateBar();
    // Paints and runs the event loop when the last time is long enough ago
    // (or `now`).
    void catchUp(bool now);

    float m_minimum = 0;
    float m_maximum = 100;
    float m_value = 0;
    QElapsedTimer m_sinceCaughtUp;
};

} // namespace dorvane
