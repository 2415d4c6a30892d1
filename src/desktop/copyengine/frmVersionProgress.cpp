#include "desktop/copyengine/frmVersionProgress.h"

#include <QApplication>
#include <QLabel>
#include <QProgressBar>
#include <QVBoxLayout>

#include <algorithm>
#include <cmath>

namespace dorvane {

namespace {
// The bar works in whole steps; the engine's values are single-precision.
constexpr int kBarSteps = 1000;
// How often, at most, the window repaints and the event loop runs while
// the engine works.
constexpr qint64 kCatchUpMs = 100;
} // namespace

frmVersionProgress::frmVersionProgress(QWidget* parent) : QDialog(parent)
{
    setObjectName(QStringLiteral("frmVersionProgress"));
    setWindowTitle(QStringLiteral("Progress"));
    setModal(false);
    m_action = new QLabel;
    m_action->setObjectName(QStringLiteral("lblAction"));
    m_action->setMinimumWidth(360);
    m_bar = new QProgressBar;
    m_bar->setObjectName(QStringLiteral("pbVersionProgress"));
    m_bar->setRange(0, kBarSteps);
    m_bar->setTextVisible(false);
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(m_action);
    layout->addWidget(m_bar);
}

void frmVersionProgress::SetTitle(const QString& title) { setWindowTitle(title); }

void frmVersionProgress::ShowWindow()
{
    show();
    raise();
    catchUp(true);
}

void frmVersionProgress::SetAction(const QString& text)
{
    m_action->setText(text);
    catchUp(true);
}

void frmVersionProgress::SetRange(float minimum, float maximum)
{
    m_minimum = minimum;
    m_maximum = maximum;
    updateBar();
}

void frmVersionProgress::SetValue(float value) { m_value = value; }

void frmVersionProgress::updateBar()
{
    const float span = m_maximum - m_minimum;
    const float share = span > 0 ? (m_value - m_minimum) / span : 0.0f;
    m_bar->setValue(static_cast<int>(std::lround(std::clamp(share, 0.0f, 1.0f) * kBarSteps)));
}

void frmVersionProgress::catchUp(bool now)
{
    if (!now && m_sinceCaughtUp.isValid() && m_sinceCaughtUp.elapsed() < kCatchUpMs)
        return;
    updateBar();
    if (isVisible()) {
        m_bar->repaint();
        m_action->repaint();
    }
    QCoreApplication::processEvents();
    m_sinceCaughtUp.start();
}

void frmVersionProgress::Refresh() { catchUp(false); }

void frmVersionProgress::Yield() { catchUp(false); }

void frmVersionProgress::HideWindow()
{
    updateBar();
    if (isVisible())
        hide();
}

} // namespace dorvane
