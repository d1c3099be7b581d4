// SPDX-License-Identifier: MIT
// Looks up the addresses of a name without making anybody wait who does not want to. Internal.
#pragma once

#include <QtCore/QStringList>

#include <memory>

namespace comunication {
namespace mosquittopp {

/// One look-up of a name. It runs in a thread that may be left behind: nothing can stop it, and a name server that
/// never answers holds it for half a minute. Few such threads run at a time; further look-ups wait for one of them.
class lookup_t {
public:
    /// Starts at once. A text that is no name, and one that nobody can look up for want of threads or descriptors, is
    /// answered here with nothing: ask isDone() before waiting.
    explicit lookup_t(const QString& host);
    /// Lets go of it; whoever still looks up touches nothing of this object.
    ~lookup_t();
    lookup_t(const lookup_t&) = delete;
    lookup_t& operator=(const lookup_t&) = delete;

    /// Becomes readable with the answer and stays so. Belongs to this object; -1 if there is none.
    int descriptor() const;
    bool isDone() const;
    /// Empty if the name does not resolve or nobody has answered yet. Without repeats, in the system's order.
    QStringList addresses() const;

private:
    struct answer_t;
    struct workers_t;
    std::shared_ptr<answer_t> answer;
};

} // namespace mosquittopp
} // namespace comunication
