<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="en" sourcelanguage="en">
<context>
    <name>StateBar</name>
    <message numerus="yes">
        <source>Values %n minute(s) old</source>
        <translation>
            <numerusform>Values %n minute old</numerusform>
            <numerusform>Values %n minutes old</numerusform>
        </translation>
    </message>
    <message numerus="yes">
        <source>Values %n hour(s) old</source>
        <translation>
            <numerusform>Values %n hour old</numerusform>
            <numerusform>Values %n hours old</numerusform>
        </translation>
    </message>
</context>
</TS>
