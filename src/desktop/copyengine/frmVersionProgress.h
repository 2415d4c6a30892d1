#pragma once

#include "core/repository/Interaction.h"

#include <QDialog>
#include <QElapsedTimer>

class QLabel;
class QProgressBar;

namespace dorvane {

// The copy engine's progress window: what is being copied and how far.
// It has no behaviour of its own; the engine writes into it.
//
// The engine refreshes it and yields after every row, hundreds of
// thousands of times a second; painting and running the event loop that
// often would cost more than the copy. The bar takes the engine's value
// and the window repaints and lets the event loop run a few times a
// second only, and at once when it is shown or a new step begins.
class frmVersionProgress : public QDialog, public ProgressSink {
    Q_OBJECT
public:
    explicit frmVersionProgress(QWidget* parent = nullptr);

    QLabel* lblAction() const { return m_action; }
    QProgressBar* pbVersionProgress() const { return m_bar; }

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

    QLabel* m_action;
    QProgressBar* m_bar;
    float m_minimum = 0;
    float m_maximum = 100;
    float m_value = 0;
    QElapsedTimer m_sinceCaughtUp;
};

} // namespace dorvane
