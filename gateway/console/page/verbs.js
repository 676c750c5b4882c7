// The commands as forms: which fields each has, what may stand in them, and the words of the command line.

const whole_number = /^-?\d+$/;

function number_fault(text, least, most) {
    if (!whole_number.test(text)) {
        return "is not a whole number";
    }
    const number = Number(text);
    return number < least || number > most ? `may be ${least} to ${most}` : "";
}

const number = (least, most) => (text) => number_fault(text, least, most);
const signed32 = number(-2147483648, 2147483647);
const unsigned32 = number(0, 4294967295);
const device_id = (text) => (/^[\x20-\x21\x23-\x5b\x5d-\x7e]{1,25}$/.test(text) ? ""
    : "has 1 to 25 printable ASCII characters without \" and \\");

const devices = ({ state }) => (state?.devices ?? []).map((device) => device.dev_id);
const product_of = ({ state, hello }, id) =>
    hello?.products?.[state?.devices?.find((device) => device.dev_id === id)?.pid];

/** What is wrong with the value of a data point, as its product describes it. */
function value_fault(text, { kind, min = -2147483648, max = 2147483647, values = [], max_bytes = 1024 }) {
    switch (kind) {
    case "bool": return text === "true" || text === "false" ? "" : "is true or false";
    case "value": return number_fault(text, min, max);
    case "enum": return values.includes(text) ? "" : `is one of ${values.join(", ")}`;
    case "text": return new TextEncoder().encode(text).length <= max_bytes ? "" : `has at most ${max_bytes} bytes`;
    default: return "";
    }
}

function data_points_fault(words, context, [id]) {
    if (words.length === 1 && words[0].startsWith("{")) {
        try {
            JSON.parse(words[0]);
            return "";
        } catch {
            return "is no JSON";
        }
    }
    const product = product_of(context, id);
    for (const word of words) {
        const [, dp, value] = /^(\d+)=(.*)$/s.exec(word) ?? [];
        if (dp === undefined) {
            return `'${word}' is not DP=VALUE, as in 1=true`;
        }
        if (product && !product[dp]) {
            return `the device's product has no data point ${dp}; there are ${Object.keys(product).join(", ")}`;
        }
        const fault = product ? value_fault(value, product[dp]) : "";
        if (fault) {
            return `data point ${dp} ${fault}`;
        }
    }
    return "";
}

/** The results that a service or callback may be given, by what it returns. */
function result_fault(text, kind) {
    const limits = { byte: [0, 255], pointer: [0, 0], nothing: [0, 0] }[kind] ?? [-2147483648, 2147483647];
    return number_fault(text, ...limits);
}

const kind_of = (list, name) => list?.find((each) => each.name === name)?.returns;
const names_of = (list) => (list ?? []).map((each) => each.name);

function address_fault(text) {
    const is_address = /^(\d{1,3})(\.\d{1,3}){3}$/.test(text) && text.split(".").every((part) => Number(part) < 256);
    return text === "" || text === "auto" || is_address ? "" : "is an address like 192.168.1.2, auto, or nothing";
}

const ID = { label: "ID", suggests: devices, fault: device_id };
const VALUE = { label: "VALUE", may_be_empty: true };

/**
 * Fields by verb, in the order of the words. label: its name; choices: what it is one of; suggests: what it may be;
 * fault: (text, context, words before) what is wrong with it, or ""; is_optional: it may be left out; may_be_empty: the
 * empty text is a value; takes_words: several words; option: the word that goes before it.
 */
const fields_of_verb = {
    status: [], devices: [],
    set: [{ label: "FIELD", choices: ({ hello }) => hello?.fields?.gateway ?? [] }, VALUE],
    device: [ID, { label: "FIELD", choices: ({ hello }) => hello?.fields?.device ?? [] }, VALUE],
    report: [ID, { label: "DP=VALUE…", takes_words: true, hint: "1=true 3=auto", fault: data_points_fault }],
    join: [ID, { label: "PID", is_optional: true,
        suggests: ({ hello }) => Object.keys(hello?.products ?? {}) }],
    network: [{ label: "State", choices: () => ["down", "up"] }],
    ip: [{ label: "ADDRESS", suggests: () => ["auto"], may_be_empty: true, fault: address_fault }],
    "wifi-config-needed": [{ label: "Needed", choices: () => ["1", "0"] }],
    "wifi-mode": [{ label: "N", suggests: () => ["1", "4"], fault: unsigned32 }],
    airkiss: [{ label: "STATUS", suggests: () => ["4", "6", "7"], fault: number(0, 255) },
        { label: "ACTIVE", suggests: () => ["0", "1"], fault: signed32 }],
    fault: [{ label: "SERVICE", choices: ({ hello }) => names_of(hello?.services) },
        { label: "RESULT", suggests: () => ["-1", "off"],
            fault: (text, { hello }, [name]) =>
                (text === "off" ? "" : result_fault(text, kind_of(hello?.services, name))) }],
    callback: [{ label: "NAME", choices: ({ hello }) => names_of(hello?.callbacks) },
        { label: "RESULT", suggests: () => ["absent", "present", "-1"], fault: (text, { hello }, [name]) =>
            (text === "absent" || text === "present" ? "" : result_fault(text, kind_of(hello?.callbacks, name))) }],
    register: [{ label: "FRAME_TYPE", fault: signed32 },
        { label: "RESULT", suggests: () => ["0", "-1"], fault: signed32 }],
    upgrade: [{ label: "Action", choices: () => ["start"] },
        { label: "Device", option: "--cid", suggests: devices, is_optional: true },
        { label: "File size", option: "--file-size", is_optional: true, fault: unsigned32 },
        { label: "Chunk size", option: "--chunk-size", is_optional: true, fault: unsigned32 },
        { label: "Progress", option: "--percent", is_optional: true, choices: () => ["", "1", "0"] },
        { label: "Handed back", option: "--remain", is_optional: true, fault: unsigned32 }],
};

/** Fields of a verb that this page does not know: its words as they are. */
const any_words = [{ label: "Arguments", takes_words: true, is_optional: true }];

const choice_of_function = { label: "FUNCTION", choices: ({ hello }) => names_of(hello?.functions), reshapes: true };

function fields_of_function(hello, name) {
    const all = hello?.functions?.find((each) => each.name === name)?.arguments ?? "";
    return (all.match(/[A-Za-z_]+/g) ?? []).map((label) => ({ label, is_optional: true,
        suggests: /^(CID|DEV_ID)$/.test(label) ? devices : undefined }));
}

/** Commands that are called another name than their verb. */
const shortcuts = [{ name: "unbind", words: ["call", "engr_lan_sub_dev_unbind_report"], fields: [ID],
    help: "Tells the apps that a device was unbound" }];

/** All commands that there are: name, help, the words they begin with. */
export function commands(hello) {
    const verbs = (hello?.verbs ?? []).map((verb) => ({ name: verb.name, help: verb.help, words: [verb.name] }));
    return [...verbs, ...shortcuts];
}

/**
 * The fields of a command.
 *
 * @param filled  what is in the fields so far: the fields of call depend on the function
 */
export function fields_of(command, hello, filled) {
    if (command.fields) {
        return command.fields;
    }
    if (command.name === "call") {
        const name = filled[0] || names_of(hello?.functions)[0];
        return [choice_of_function, ...fields_of_function(hello, name)];
    }
    return fields_of_verb[command.name] ?? any_words;
}

export const missing_fault = "is missing";

/** What is wrong with a field, or "". texts: all fields in order. */
export function fault_of(field, text, context, texts) {
    if (text === "" && (field.is_optional || field.may_be_empty)) {
        return "";
    }
    if (text === "") {
        return missing_fault;
    }
    const choices = field.choices?.(context);
    if (choices && !choices.includes(text)) {
        return `is one of ${choices.join(", ")}`;
    }
    return field.fault?.(text, context, texts) ?? "";
}
