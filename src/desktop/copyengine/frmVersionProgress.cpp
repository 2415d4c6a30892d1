#include "desktop/copyengine/frmVersionProgress.h"

#include <QApplication>

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
    setupUi(this);
    pbVersionProgress->setRange(0, kBarSteps);
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
    lblAction->setText(text);
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
    pbVersionProgress->setValue(static_cast<int>(std::lround(std::clamp(share, 0.0f, 1.0f) * kBarSteps)));
}

void frmVersionProgress::catchUp(bool now)
{
    if (!now && m_sinceCaughtUp.isValid() && m_sinceCaughtUp.elapsed() < kCatchUpMs)
        return;
    updateBar();
    if (isVisible()) {
        pbVersionProgress->repaint();
        lblAction->repaint();
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
