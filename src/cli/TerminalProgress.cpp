#include "cli/TerminalProgress.h"

#include <QDateTime>

#include <algorithm>

#include <unistd.h>

namespace dorvane::cli {

namespace {
constexpr int kBarCells = 30;
constexpr qint64 kRedrawMs = 100;
} // namespace

TerminalProgress::TerminalProgress(std::FILE* stream)
    : m_stream(stream), m_enabled(isatty(fileno(stream)) == 1)
{
}

TerminalProgress::~TerminalProgress()
{
    HideWindow();
}

void TerminalProgress::SetTitle(const QString& title)
{
    if (m_enabled) {
        std::fprintf(m_stream, "%s\n", title.toLocal8Bit().constData());
        std::fflush(m_stream);
    }
}

void TerminalProgress::ShowWindow() { m_shown = true; }

void TerminalProgress::SetAction(const QString& text)
{
    m_action = text;
    m_lastCells = -1;
}

void TerminalProgress::SetRange(float minimum, float maximum)
{
    m_minimum = minimum;
    m_maximum = maximum;
}

void TerminalProgress::SetValue(float value) { m_value = value; }

void TerminalProgress::Refresh() { draw(false); }

void TerminalProgress::draw(bool force)
{
    if (!m_enabled || !m_shown)
        return;
    const float span = m_maximum - m_minimum;
    const float share = span > 0 ? std::clamp((m_value - m_minimum) / span, 0.0f, 1.0f) : 0.0f;
    const int cells = static_cast<int>(share * kBarCells);
    const qint64 now = QDateTime::currentMSecsSinceEpoch();
    if (!force && cells == m_lastCells && now - m_lastDrawMs < kRedrawMs)
        return;
    m_lastCells = cells;
    m_lastDrawMs = now;
    const QString bar = QString(cells, QLatin1Char('#')) + QString(kBarCells - cells, QLatin1Char('.'));
    const QString line = QStringLiteral("\r\033[K%1  [%2]  %3/%4")
                             .arg(m_action.left(50), bar)
                             .arg(static_cast<qint64>(m_value))
                             .arg(static_cast<qint64>(m_maximum));
    std::fputs(line.toLocal8Bit().constData(), m_stream);
    std::fflush(m_stream);
}

void TerminalProgress::HideWindow()
{
    if (m_enabled && m_shown) {
        std::fputs("\r\033[K", m_stream);
        std::fflush(m_stream);
    }
    m_shown = false;
}

} // namespace dorvane::cli
