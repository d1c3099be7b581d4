// SPDX-License-Identifier: MIT
#include <flotrofobul/platform/mosquittopp/mosquittoqt.h>

#include <flotrofobul/platform/mosquittopp/link.h>

#include <algorithm>

namespace comunication {
namespace mosquittopp {

mosquittoqt::mosquittoqt(const QString& clientId, bool cleanSession, bool autoconnect, QObject* parent)
    : mosquittoppqt(clientId, cleanSession, autoconnect, parent)
{}

mosquittoqt::~mosquittoqt() = default;

void mosquittoqt::setClientId(const QString& clientId)
{
    link->identity.clientId = clientId;
}

void mosquittoqt::setLoopInterval(int milliseconds)
{
    link->interval = milliseconds_t(milliseconds);
}

void mosquittoqt::setConnectTimeout(int seconds)
{
    link->connectTimeout =
        std::clamp(seconds_t(seconds), limits::connectTimeout.lowest, limits::connectTimeout.highest);
}

void mosquittoqt::setOutboxLimits(int messages, int bytes)
{
    link->outbox.setLimits(messages, bytes);
}

void mosquittoqt::setMaxPacketBytes(int bytes)
{
    link->maxPacketBytes = bytes;
}

bool mosquittoqt::getConnected() const
{
    return link->isConnected();
}

int mosquittoqt::disconnect_sync()
{
    return link->disconnect();
}

QString mosquittoqt::linkProblem() const
{
    return link->linkProblem();
}

int mosquittoqt::pendingEnds() const
{
    return link->pendingEnds();
}

void mosquittoqt::withdraw(int mid)
{
    link->withdraw(mid);
}

bool mosquittoqt::hasWill() const
{
    return link->identity.hasWill;
}

will_t mosquittoqt::getWill() const
{
    return link->identity.will;
}

} // namespace mosquittopp
} // namespace comunication
