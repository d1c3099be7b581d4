<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="de" sourcelanguage="en">
<context>
    <name>RoomCard</name>
    <message>
        <source>%1 °C</source>
        <translation>%1 °C</translation>
    </message>
    <message>
        <source>%1 cooler</source>
        <translation>%1 kühler</translation>
    </message>
    <message>
        <source>wanted</source>
        <translation>gewünscht</translation>
    </message>
    <message>
        <source>%1 warmer</source>
        <translation>%1 wärmer</translation>
    </message>
</context>
<context>
    <name>StateBar</name>
    <message>
        <source>No connection to the house</source>
        <translation>Keine Verbindung zum Haus</translation>
    </message>
    <message>
        <source>Connecting…</source>
        <translation>Verbinde …</translation>
    </message>
    <message>
        <source>Waiting for the central unit</source>
        <translation>Warte auf die Zentrale</translation>
    </message>
    <message>
        <source>The central unit does not answer</source>
        <translation>Die Zentrale antwortet nicht</translation>
    </message>
    <message>
        <source>Asking the central unit…</source>
        <translation>Frage die Zentrale …</translation>
    </message>
    <message>
        <source>Connected</source>
        <translation>Verbunden</translation>
    </message>
    <message>
        <source>No values yet</source>
        <translation>Noch keine Werte</translation>
    </message>
    <message>
        <source>Values of %1</source>
        <translation>Werte von %1</translation>
    </message>
    <message>
        <source>Values from before</source>
        <translation>Werte von früher</translation>
    </message>
    <message>
        <source>Values less than a minute old</source>
        <translation>Werte keine Minute alt</translation>
    </message>
    <message numerus="yes">
        <source>Values %n minute(s) old</source>
        <translation>
            <numerusform>Werte %n Minute alt</numerusform>
            <numerusform>Werte %n Minuten alt</numerusform>
        </translation>
    </message>
    <message numerus="yes">
        <source>Values %n hour(s) old</source>
        <translation>
            <numerusform>Werte %n Stunde alt</numerusform>
            <numerusform>Werte %n Stunden alt</numerusform>
        </translation>
    </message>
</context>
<context>
    <name>main</name>
    <message>
        <source>Kitchen</source>
        <translation>Küche</translation>
    </message>
    <message>
        <source>Living room</source>
        <translation>Wohnzimmer</translation>
    </message>
    <message>
        <source>Bedroom</source>
        <translation>Schlafzimmer</translation>
    </message>
    <message>
        <source>Bathroom</source>
        <translation>Bad</translation>
    </message>
    <message>
        <source>House</source>
        <translation>Haus</translation>
    </message>
    <message>
        <source>Ask again</source>
        <translation>Noch einmal</translation>
    </message>
    <message>
        <source>Light</source>
        <translation>Hell</translation>
    </message>
    <message>
        <source>Dark</source>
        <translation>Dunkel</translation>
    </message>
    <message>
        <source>The panel keeps trying. Is the router switched on?</source>
        <translation>Es wird weiter versucht. Ist der Router eingeschaltet?</translation>
    </message>
    <message>
        <source>The rooms are being asked for.</source>
        <translation>Die Räume werden abgefragt.</translation>
    </message>
    <message>
        <source>The rooms appear when the central unit is there.</source>
        <translation>Die Räume erscheinen, sobald die Zentrale da ist.</translation>
    </message>
</context>
</TS>
