// SPDX-License-Identifier: MIT
// The topic grammar: what the topics of the system are made of.
#pragma once

#include <flotrofobul/define/types.h>

#include <QtCore/QString>

namespace comunication {
namespace utility {

/// A topic of the system, split into its parts:
///
///     [bridge/]local/<installation id>/<sender>/<destination>/<value, any number of levels>
///
/// A value for one message. The installation id is shared by all engines of the process; the constructor of an engine
/// sets it before anything is parsed. Setting it and parsing may happen in several threads at once. The texts below are
/// plain members: a host that reads or sets one of them sees to it that no engine is being built elsewhere.
///
/// The installation id is used as a character class, so its level matches any sequence of the id's characters (4321 and
/// 11 with the id 1234). With an empty id the class swallows what follows it and no topic is recognised: always set an
/// id.
class FLOTROFOBUL_EXPORT topic_t {
public:
    static qint32 topic_min_len;                  ///< minimum number of topic levels, and of capture groups
    static QString admitedword;                   ///< body of the class of admitted characters; in the patterns already
    static QString installation_id;               ///< as given to setInstallationid()
    static QString regex_allowed_topic_plain;     ///< pattern that setInstallationid() puts an id into
    static QString tmp_regex_allowed_topic_plain; ///< pattern used for parsing, in QRegExp syntax

    /// Sets the installation id for all topics parsed from now on.
    static void setInstallationid(const QString& id);
    static int getTopic_min_len() { return topic_min_len; }
    static QString getAdmitedword() { return admitedword; }

    /// Parses a topic. *ok, which must not be null, tells whether it matches the grammar; if not, one line is logged at
    /// level 2 and every part except the original stays empty.
    topic_t(const QString& topic, bool* ok);

    QString getOrigin() const { return origin; }           ///< bridge name, or empty
    QString getLocal() const { return local; }             ///< "local"
    QString getPlain() const { return plain; }             ///< level of the installation id
    QString getSender() const { return sender; }           ///< client id of the publishing node
    QString getDestination() const { return destination; } ///< the node or nodes that it is for
    QString getValue() const { return value; }             ///< all levels after the destination
    QString getOriginal() const { return original; }       ///< the whole topic as received

private:
    enum class verdict_t { matches, differs, unknown };
    [[nodiscard]] verdict_t parseByHand();
    [[nodiscard]] verdict_t parseByExpression();

    QString origin;
    QString local;
    QString plain;
    QString sender;
    QString destination;
    QString value;
    QString original;
    QString pattern; ///< only stored, never used for matching; lacks the group of the installation id
};

} // namespace utility
} // namespace comunication
