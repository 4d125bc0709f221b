"""What a workstation with Python would run in place of the plugin's handler of an event.

Prints, as the other benchmarks do, how long one event takes: from the controller's map in the host to the published
one in the host, with the handler in Python between them.
"""
import json
import sys
import time

from PySide2.QtCore import QObject

ERROR_TEXTS = {
    300: "Run time limit (Forward)",
    301: "Run time limit (Reverse)",
    302: "Model setting error",
    303: "Model cancel",
    304: "Motor stall by loosening failure",
    309: "Bit socket tray",
    310: "Time over in screw counting",
    311: "Screw missing",
    330: "Min Angle error",
    331: "Target angle setting error",
    332: "Angle over",
    333: "No torque complete",
    334: "Engaging torque detection fail",
    335: "Converted torque error",
    336: "Over torque error",
    337: "Torque up at free speed",
    338: "Thread tap max torque error",
    339: "Thread tap min max range error",
    342: "Holding time max angle",
}


class Host(QObject):
    """The host's side: maps are Qt's where it holds them, and Python's where the handler does."""

    def __init__(self, message):
        super().__init__()
        self.setProperty("message", message)
        for key, value in {"name": "left bench", "serialNumber": "ZRT-2026-0042",
                           "validityDate": "2027-03-31"}.items():
            self.setProperty(key, value)


def on_event(host, reply):
    values = reply.get("values")
    if values is None:
        print("ERROR: Invalid reply format", file=sys.stderr)
        return False
    if not isinstance(values, dict):
        print("ERROR: Reply data format not managed", file=sys.stderr)
        return True
    text = ERROR_TEXTS.get(values.get("error"))
    if text:
        print(f"ZRT screwdriver {host.property('name')} error code {values['error']}: {text}", file=sys.stderr)
    values["serialNumber"] = str(host.property("serialNumber"))
    values["validityDate"] = str(host.property("validityDate"))
    values["toolName"] = str(host.property("name"))
    host.setProperty("eventData", values)
    return True


def nanoseconds_per_event(count):
    values = {"eventCountNo": 1, "error": 0, "torque": 252, "status": "OK"}
    for i in range(len(values), count):
        values[f"reading{i:04}"] = i
    host = Host({"values": values})
    rounds = max(1, 50_000 // count)
    start = time.process_time()
    for _ in range(rounds):
        if not on_event(host, host.property("message")):
            sys.exit("the event was not taken")
    return (time.process_time() - start) / rounds * 1e9


def main():
    print(json.dumps({"benchmarks": [
        {"name": f"event/{count}/python", "cpu_time": nanoseconds_per_event(count), "time_unit": "ns"}
        for _ in range(5) for count in (4, 16, 64, 256, 1024)]}))


main()
