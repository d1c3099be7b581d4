// SPDX-License-Identifier: MIT
// The one object that QML sees: the house as it is at the moment that is shown, and what a person can do with it. All
// packet work happens in the watcher's thread; here are only scenes.
#pragma once

#include "history.h"
#include "layout.h"
#include "rows.h"
#include "scene.h"
#include "watcher.h"

#include "connection/connection.h"

#include <QtCore/QDateTime>
#include <QtCore/QElapsedTimer>
#include <QtCore/QHash>
#include <QtCore/QThread>
#include <QtCore/QTimer>

namespace comunication {
namespace view {

class picture_t : public QObject {
    Q_OBJECT
    /// Size of the canvas, set by QML.
    Q_PROPERTY(qreal viewWidth READ viewWidth WRITE setViewWidth NOTIFY viewChanged)
    Q_PROPERTY(qreal viewHeight READ viewHeight WRITE setViewHeight NOTIFY viewChanged)
    Q_PROPERTY(comunication::view::rows_t* brokers READ brokers CONSTANT)
    Q_PROPERTY(comunication::view::rows_t* lines READ lines CONSTANT)
    Q_PROPERTY(comunication::view::rows_t* nodes READ nodes CONSTANT)
    Q_PROPERTY(comunication::view::rows_t* events READ events CONSTANT)
    /// What is wrong at the moment that is shown, one line.
    Q_PROPERTY(QString alarm READ alarm NOTIFY sceneChanged)
    /// What there is to say of a recording or of what was asked for; empty as a rule.
    Q_PROPERTY(QString notice READ notice NOTIFY noticeChanged)
    /// Nobody has said what to watch, and no broker has answered yet.
    Q_PROPERTY(bool blank READ isBlank NOTIFY blankChanged)
    Q_PROPERTY(QString title READ title NOTIFY titleChanged)
    Q_PROPERTY(double rate READ rate NOTIFY sceneChanged)
    Q_PROPERTY(double roundTrip READ roundTrip NOTIFY sceneChanged)
    Q_PROPERTY(bool recording READ isRecording NOTIFY titleChanged)
    Q_PROPERTY(bool playing READ isPlaying NOTIFY playingChanged)
    Q_PROPERTY(double speed READ speed WRITE setSpeed NOTIFY playingChanged)
    Q_PROPERTY(bool live READ isLive NOTIFY timeChanged)
    Q_PROPERTY(bool loading READ isLoading NOTIFY loadingChanged)
    Q_PROPERTY(QDateTime begin READ begin NOTIFY spanChanged)
    Q_PROPERTY(QDateTime end READ end NOTIFY spanChanged)
    Q_PROPERTY(QDateTime time READ time NOTIFY timeChanged)
    Q_PROPERTY(QDateTime edge READ edge NOTIFY edgeChanged)
    Q_PROPERTY(QString selected READ selected WRITE setSelected NOTIFY selectedChanged)
    Q_PROPERTY(QString selectedKind READ selectedKind NOTIFY selectedChanged)
    Q_PROPERTY(QString recordText READ recordText NOTIFY detailsChanged)
    Q_PROPERTY(QVariantList details READ details NOTIFY detailsChanged)
    Q_PROPERTY(comunication::view::rows_t* packets READ packets CONSTANT)
    Q_PROPERTY(double ratesMaximum READ ratesMaximum NOTIFY plotChanged)
    Q_PROPERTY(double tripsMaximum READ tripsMaximum NOTIFY plotChanged)

public:
    explicit picture_t(QObject* parent = nullptr);
    ~picture_t() override;

    /// Listens to a house in place of what was watched. isGuess: nobody has named it.
    void watch(const QVector<tools::connection_t>& connections, bool isGuess = false);

    [[nodiscard]] qreal viewWidth() const { return size.width(); }
    void setViewWidth(qreal width);
    [[nodiscard]] qreal viewHeight() const { return size.height(); }
    void setViewHeight(qreal height);
    [[nodiscard]] rows_t* brokers() { return &brokerRows; }
    [[nodiscard]] rows_t* lines() { return &lineRows; }
    [[nodiscard]] rows_t* nodes() { return &nodeRows; }
    [[nodiscard]] rows_t* events() { return &eventRows; }
    [[nodiscard]] rows_t* packets() { return &packetRows; }
    [[nodiscard]] QString alarm() const { return scene->alarm; }
    [[nodiscard]] QString notice() const { return noticeText; }
    [[nodiscard]] bool isBlank() const { return blank; }
    [[nodiscard]] QString title() const { return titleText; }
    [[nodiscard]] double rate() const { return scene->rate; }
    [[nodiscard]] double roundTrip() const { return scene->roundTrip; }
    [[nodiscard]] bool isRecording() const { return hasRecording; }
    [[nodiscard]] bool isPlaying() const { return playTimer.isActive(); }
    [[nodiscard]] double speed() const { return playSpeed; }
    void setSpeed(double speed);
    [[nodiscard]] bool isLive() const { return live; }
    [[nodiscard]] bool isLoading() const { return loading; }
    [[nodiscard]] QDateTime begin() const { return dateOf(span.begin); }
    [[nodiscard]] QDateTime end() const { return dateOf(span.end); }
    [[nodiscard]] QDateTime time() const { return dateOf(shown); }
    [[nodiscard]] QDateTime edge() const { return dateOf(newest); }
    [[nodiscard]] QString selected() const { return selection.id; }
    [[nodiscard]] QString selectedKind() const { return selection.kind; }
    void setSelected(const QString& id) { select(QStringLiteral("node"), id); }
    [[nodiscard]] QString recordText() const { return recordWords; }
    [[nodiscard]] QVariantList details() const { return detailList; }
    [[nodiscard]] double ratesMaximum() const { return plot.ratesMaximum; }
    [[nodiscard]] double tripsMaximum() const { return plot.tripsMaximum; }

    /// Shows the house as it was then.
    Q_INVOKABLE void show(const QDateTime& date);
    /// Shows the newest, and goes on with it.
    Q_INVOKABLE void goLive();
    Q_INVOKABLE void play();
    Q_INVOKABLE void pause();
    /// Opens a recording, a URL or a path, in place of what is watched. False, with a notice, if it is none.
    Q_INVOKABLE bool open(const QString& file);
    /// Listens at one broker in place of what is watched. False, with a notice, if that cannot be.
    Q_INVOKABLE bool connectTo(const QString& host, int port, const QString& installation);
    /// kind: "node", "broker" or "line"; an empty id selects nothing.
    Q_INVOKABLE void select(const QString& kind, const QString& id);
    /// Replaces the points of an XYSeries: seconds before the shown time, -300 to 0, and packets a second.
    Q_INVOKABLE void fillRates(QObject* series) const;
    /// The same with the milliseconds from a request to its answer.
    Q_INVOKABLE void fillRoundTrips(QObject* series) const;

Q_SIGNALS:
    void viewChanged();
    void sceneChanged();
    void noticeChanged();
    void blankChanged();
    void titleChanged();
    void playingChanged();
    void loadingChanged();
    void spanChanged();
    void timeChanged();
    void edgeChanged();
    void selectedChanged();
    void detailsChanged();
    void plotChanged();

private:
    struct selection_t {
        QString kind;
        QString id;
    };
    struct span_t {
        moment_t begin = house::never;
        moment_t end = house::never;
    };
    struct pulses_t {
        qint64 there = 0; ///< packets when last looked at
        qint64 back = 0;
        int pulseThere = 0;
        int pulseBack = 0;
    };
    struct plot_t {
        QVector<QPointF> rates;
        QVector<QPointF> trips;
        double ratesMaximum = 1;
        double tripsMaximum = 1;
    };

    [[nodiscard]] static QDateTime dateOf(moment_t moment);
    void empty();
    void take(const shared_scene_t& next);
    void pass(moment_t moment);
    void showEvents(const QVector<scene_event_t>& events);
    void showScene(const shared_scene_t& next);
    void arrange();
    void fillRows();
    void fillDetails();
    void showPackets(const ring_view_t& ring);
    void fillPackets();
    void setSpan();
    void setTime(moment_t moment, bool isLiveNow);
    void setNotice(const QString& words);
    void setBlank(bool on);
    void setWaiting(bool on);
    void goOn();
    void reach(moment_t moment, bool isEnd, const QString& words);
    void fillPlot();

    QSizeF size{800, 480};
    rows_t brokerRows;
    rows_t lineRows;
    rows_t nodeRows;
    rows_t eventRows;
    rows_t packetRows;
    shared_scene_t scene; ///< that is shown; never null
    history_t history;
    layout_t places;
    QVector<scene_event_t> eventList;
    QHash<QString, pulses_t> nodePulses;
    QHash<QString, pulses_t> linePulses;
    plot_t plot;
    ring_view_t packetRing;
    QString noticeText;
    QString titleText;
    QString recordWords;
    QVariantList detailList;
    selection_t selection;
    span_t span;
    moment_t shown = house::never;
    moment_t newest = house::never;
    moment_t whole = house::never; ///< where a recording ends
    bool hasRecording = false;
    bool live = true;
    bool waiting = false; ///< for the watcher to read on
    bool loading = false; ///< the same, where a person waits as well
    bool blank = false;
    double playSpeed = 1;
    QTimer playTimer;
    QElapsedTimer sincePlayed;
    quint64 generation = 0; ///< of what is watched; what the watcher says of an earlier one is dropped
    QThread thread;
    watcher_t* watcher; ///< lives in the thread, which ends it
};

} // namespace view
} // namespace comunication
