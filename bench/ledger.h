// SPDX-License-Identifier: MIT
// Numbered messages and what became of each. Its memory does not grow, so that growth is somebody else's.
#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QStringList>

#include <algorithm>
#include <mutex>
#include <vector>

/// A text that no other message has, and that shows its own damage.
inline QByteArray payloadOf(int number, int filling)
{
    return QByteArray::number(number) + ' ' + QByteArray::number(filling) + ' ' +
           QByteArray(filling, static_cast<char>('a' + number % 26));
}
/// The number of an intact payload, -1 for any other.
inline int numberIn(const QByteArray& payload)
{
    const QList<QByteArray> words = payload.left(30).split(' ');
    const int number = words[0].toInt();
    const int filling = words.value(1).toInt();
    return filling >= 0 && filling <= payload.size() && payload == payloadOf(number, filling) ? number : -1;
}

/// One sender's messages at one receiver. Any thread may call it.
class ledger_t {
public:
    enum mark_t : quint8 { qosMask = 3, asked = 4, acknowledged = 8, arrived = 16, repeated = 32, late = 64 };

    explicit ledger_t(int most) : marks(static_cast<std::size_t>(most)) {}

    bool isFull() const { return next >= static_cast<int>(marks.size()); }
    /// Number of the next message.
    int ask(int qos)
    {
        const std::lock_guard<std::mutex> lock(mutex);
        marks[next] = static_cast<quint8>(asked | qos);
        return next++;
    }
    /// The newest message was not accepted.
    void takeBack()
    {
        const std::lock_guard<std::mutex> lock(mutex);
        --next;
    }
    void acknowledge(int number)
    {
        const std::lock_guard<std::mutex> lock(mutex);
        marks[number] |= acknowledged;
    }
    void arrive(const QByteArray& payload)
    {
        const int number = numberIn(payload);
        const std::lock_guard<std::mutex> lock(mutex);
        if (number < 0 || number >= next) {
            ++damagedCount;
            return;
        }
        quint8& mark = marks[number];
        int& newest = highest[mark & qosMask];
        mark |= mark & arrived ? repeated : number < newest ? arrived | late : arrived;
        newest = std::max(newest, number);
    }

    /// How many messages of a quality have all of some marks and none of others.
    int count(int qos, int has, int lacks = 0) const
    {
        int result = 0;
        each(qos, has, lacks, [&result](int) { ++result; });
        return result;
    }
    /// The same, by their "quality/number".
    QStringList names(int qos, int has, int lacks = 0) const
    {
        QStringList result;
        each(qos, has, lacks, [&](int number) { result << QStringLiteral("%1/%2").arg(qos).arg(number); });
        return result;
    }
    /// The newest that has arrived at a quality.
    int newest(int qos) const
    {
        const std::lock_guard<std::mutex> lock(mutex);
        return highest[qos];
    }
    int size() const { return next; }
    int damaged() const { return damagedCount; }

private:
    template <typename Visit>
    void each(int qos, int has, int lacks, Visit visit) const
    {
        const std::lock_guard<std::mutex> lock(mutex);
        for (int i = 0; i < next; ++i) {
            if ((marks[i] & qosMask) == qos && (marks[i] & has) == has && (marks[i] & lacks) == 0) {
                visit(i);
            }
        }
    }

    mutable std::mutex mutex;
    std::vector<quint8> marks;
    int next = 0;
    int highest[3] = {-1, -1, -1};
    int damagedCount = 0;
};
