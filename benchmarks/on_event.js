// What a workstation with scripts would run in place of the plugin's handler of an event: the same checks, the same
// table, the same questions to the host. `host` offers parameter(key) and publish(key, value).
(function () {
    const errorTexts = {
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

    return function (reply) {
        if (!("values" in reply)) {
            console.error("ERROR: Invalid reply format")
            return false
        }
        const values = reply.values
        if (values === null || typeof values !== "object" || Array.isArray(values)) {
            console.error("ERROR: Reply data format not managed")
            return true
        }
        if (values.error in errorTexts)
            console.info(`ZRT screwdriver ${host.parameter("name")} error code ${values.error}: ${errorTexts[values.error]}`)
        values.serialNumber = String(host.parameter("serialNumber"))
        values.validityDate = String(host.parameter("validityDate"))
        values.toolName = String(host.parameter("name"))
        return host.publish("eventData", values)
    }
})()
