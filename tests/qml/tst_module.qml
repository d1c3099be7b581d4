// SPDX-License-Identifier: MIT
// One life of a panel in a house that suffers, and the picture that the model of the house has of it. The rows of a
// table follow each other.
import QtQml 2.15
import QtQml.Models 2.15
import QtTest 1.15
import Flotrofobul 1.0

TestCase {
    id: test

    property Request request
    property string lost
    property var states: []
    property var keptValue
    property string packet
    property string bridge

    name: "module"

    Panel {
        id: panel
        configuration: world.configuration
        clientId: "panel"
        timeLimit: 300
        onStateChanged: test.states.push(state)
        onMasterLost: master => test.lost = master
        onStatusReceived: (kind, topic, payload, kept) => {
            if (kept && topic === "status/DB/persistent")
                test.keptValue = payload.life
        }
        onPacketReceived: (topic, payload) => test.packet = topic + " " + payload.text
        onBridgeChanged: (bridge, up) => test.bridge = bridge + " " + up
        onMasterFound: test.request = request("persistent", "found", 4000)
    }
    HouseModel {
        id: house
        configuration: world.configuration
    }
    Instantiator {
        id: nodes
        model: house
        delegate: QtObject {
            readonly property string words: [model.nodeId, model.role, model.presence, model.master ? "master" : "",
                                             model.follows, model.ready ? "ready" : ""].filter(x => x).join(" ")
        }
    }
    SignalSpy {
        id: changes
        target: panel
        signalName: "configurationChanged"
    }
    Component { id: otherPanel; Panel {} }
    Component { id: otherHouse; HouseModel {} }

    function picture() {
        return Array.from({length: nodes.count}, (_, i) => nodes.objectAt(i).words).sort().join(", ")
    }

    function test_0_configuration_data() {
        return [
            {tag: "none", configuration: undefined, problem: /no configuration/},
            {tag: "no file", configuration: "nothing.json", problem: /nothing.json cannot be read/},
            {tag: "beside, no JSON", configuration: "tst_module.qml", problem: /tst_module.qml is no JSON/},
            {tag: "an object", configuration: {mqt: {}}, problem: /no object "mqtt"/},
        ]
    }
    function test_0_configuration(row) {
        for (const component of [otherPanel, otherHouse]) {
            const item = createTemporaryObject(component, test, {configuration: row.configuration})
            compare(item.state, Panel.Offline)
            verify(row.problem.test(item.problem), item.problem)
        }
    }

    // ask: a request before the fault; end: how that one, or else the one on masterFound, ends.
    function test_1_life_data() {
        const here = "panel client here srv ready, srv server here master"
        return [
            {tag: "no broker", fault: "", ask: "persistent", state: Panel.Offline, problem: /nobody listens/,
                end: /nobody listens/, listens: HouseModel.Offline},
            {tag: "a broker", fault: "startBroker", ask: "persistent", state: Panel.Searching,
                problem: /No server/, end: /nobody listens/, listens: HouseModel.Listening},
            {tag: "a master", fault: "startServer", state: Panel.Following, end: /"1".*"found"/, house: here},
            {tag: "a part", ask: "persistent/lamps", state: Panel.Following, end: /"1".*"wish":7/},
            {tag: "no such kind", ask: "nonsense", state: Panel.Following, end: /no kind "nonsense"/},
            {tag: "no answer", ask: "realtime", state: Panel.Following, end: /within 0.3 s/},
            {tag: "frozen", fault: "freezeServer", ask: "", state: Panel.Following},
            {tag: "asked while frozen", ask: "persistent", state: Panel.Following, end: /within 0.3 s/},
            {tag: "thawed", fault: "thawServer", state: Panel.Following},
            {tag: "dead", fault: "killServer", ask: "realtime", state: Panel.Searching, problem: /srv is gone/,
                lost: "srv", end: /srv is gone/, house: "panel client here srv, srv server gone"},
            {tag: "born again", fault: "startServer", state: Panel.Following, end: /"2".*"found"/, house: here},
            {tag: "elected away", fault: "elect", state: Panel.Searching, lost: "srv", problem: /srv is gone/},
            {tag: "forgotten", fault: "killServer", state: Panel.Searching, problem: /srv is gone/},
            {tag: "third life", fault: "startServer", state: Panel.Following, end: /"3".*"found"/},
            {tag: "broker lost", fault: "killBroker", ask: "realtime", state: Panel.Offline, lost: "srv",
                problem: /./, end: /link to the broker is lost/, listens: HouseModel.Offline},
            {tag: "broker back", fault: "startBroker", state: Panel.Following, end: /"3".*"found"/, house: here,
                listens: HouseModel.Listening},
        ]
    }
    function test_1_life(row) {
        lost = ""
        request = row.ask ? panel.request(row.ask, 7) : null
        if (row.fault)
            world[row.fault]()
        tryCompare(panel, "state", row.state, 9000)
        compare(panel.master, row.state === Panel.Following ? "srv" : "")
        tryVerify(() => row.problem ? row.problem.test(panel.problem) : panel.problem === "")
        tryCompare(test, "lost", row.lost || "")
        if (row.end) {
            tryVerify(() => request && !request.pending)
            const end = request.problem || JSON.stringify(request.answer)
            verify(row.end.test(end), end)
        }
        if (row.listens !== undefined)
            tryCompare(house, "state", row.listens)
        if (row.house !== undefined)
            tryVerify(() => picture() === row.house)
    }

    function test_2_values() {
        compare(panel.persistent.wish, "found")
        compare(panel.realtimeTime.getTime(), NaN)
        verify(new Date() - panel.persistentTime < 5000)
        compare(panel.persistentKept, false)
        compare(keptValue, "2") // what the third life found
        verify(panel.send("request/DB/persistent", "sent"))
        tryVerify(() => panel.persistent.wish === "sent")
        compare(house.masters, ["srv"])
        compare(house.count, 2)
        verify(house.events.length > 4)
    }
    function test_3_switched_off() {
        states = []
        panel.active = false
        compare(panel.state, Panel.Offline)
        compare(panel.problem, "")
        world.freezeServer()
        panel.active = true
        tryCompare(panel, "state", Panel.Searching)
        world.thawServer()
        tryCompare(panel, "state", Panel.Following)
        compare(states, [Panel.Offline, Panel.Connecting, Panel.Searching, Panel.Following])
        tryVerify(() => !request.pending)
    }
    function test_4_another_configuration() {
        const other = world.configuration
        other.mqtt.global.interval = 500
        states = []
        changes.clear()
        panel.configuration = other
        tryVerify(() => panel.state === Panel.Following && states.length === 3)
        verify(!world.hasBrokerSaid("panel already connected"))
        panel.configuration = JSON.parse(JSON.stringify(other)) // says the same
        compare(changes.count, 1)
    }
    function test_5_another_name() {
        panel.clientId = "other"
        tryVerify(() => /other client here srv ready/.test(picture()))
        tryVerify(() => /panel client gone/.test(picture()))
        tryCompare(panel, "persistentKept", false)
    }
    function test_6_what_else_is_heard() {
        world.say("all/notification/alarm", '{"d":{"text":"fire"}}')
        tryCompare(test, "packet", "forward-bridge/local/1234/srv/all/notification/alarm fire")
        compare(house.bridges.map(one => one.name + " " + one.up), ["x-y-1-2 false"])
        verify(world.startNeighbour())
        tryCompare(test, "bridge", "x-y-1-2 true")
        tryVerify(() => house.bridges[0].up)
    }
    function test_7_nobody_holds_a_request() {
        let words = ""
        panel.request("realtime").failed.connect(reason => words = reason)
        gc()
        tryVerify(() => /within/.test(words))
        gc()
    }
}
