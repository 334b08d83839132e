#pragma once

#include <QElapsedTimer>
#include <QTimer>

#include <algorithm>
#include <functional>
#include <vector>

// Notes how long the event loop takes from one turn to the next, by a timer of 10 ms, for as long
// as it is asked to.
class TurnWatch
{
public:
    explicit TurnWatch(std::function<bool()> isAsked)
        : m_isAsked(std::move(isAsked))
    {
        QObject::connect(&m_timer, &QTimer::timeout, &m_timer, [this] { end(); });
        m_clock.start();
        // Not at each turn: those of an idle loop would outnumber all others.
        m_timer.start(10);
    }

    // Ends a gap, which counts if it was asked for when it began.
    void end()
    {
        const auto gap = static_cast<double>(m_clock.nsecsElapsed()) / 1e9;
        m_clock.start();
        if (m_wasAsked)
            m_gaps.push_back(gap);
        m_wasAsked = m_isAsked();
    }

    // In seconds; that share of the gaps is no longer. There must be a gap.
    double longest(double share)
    {
        std::sort(m_gaps.begin(), m_gaps.end());
        return m_gaps.at(static_cast<size_t>(static_cast<double>(m_gaps.size() - 1) * share));
    }

private:
    std::function<bool()> m_isAsked;
    bool m_wasAsked = m_isAsked();
    QElapsedTimer m_clock;
    QTimer m_timer;
    std::vector<double> m_gaps;
};
