<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="de_DE">
<context>
    <name></name>
    <message id="GetPresetInfo_Control_Mode">
        <source>Control mode</source>
        <translation>Regelung</translation>
    </message>
    <message id="GetPresetInfo_Torque">
        <source>Torque</source>
        <translation>Drehmoment</translation>
    </message>
    <message id="GetPresetInfo_Angle">
        <source>Angle</source>
        <translation>Winkel</translation>
    </message>
    <message id="GetPresetInfo_Target_torque">
        <source>Target torque</source>
        <translation>Zieldrehmoment</translation>
    </message>
    <message id="GetPresetInfo_Target_Angle">
        <source>Target angle</source>
        <translation>Zielwinkel</translation>
    </message>
</context>
</TS>
