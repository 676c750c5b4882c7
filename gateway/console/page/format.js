// How times, sizes, JSON and command lines are written.
import { make, visible_nodes } from "./dom.js";

let session_start_ms = 0;

/** Says when the session began, from which the times of events count. */
export function set_session_start(text) {
    session_start_ms = Date.parse(text) || 0;
}

/** The time of day of an event, to the millisecond. */
export function time_of_day(at_us) {
    const time = new Date(session_start_ms + at_us / 1000);
    const two = (number) => String(number).padStart(2, "0");
    return `${two(time.getHours())}:${two(time.getMinutes())}:${two(time.getSeconds())}`
        + `.${String(time.getMilliseconds()).padStart(3, "0")}`;
}

/** A span of time in three or four digits: "0.13 ms", "12.5 ms", "3.21 s", "2 min 05 s". */
export function span(us) {
    if (us < 0) {
        return `−${span(-us)}`;
    }
    const digits = (value) => (value < 10 ? value.toFixed(2) : value < 100 ? value.toFixed(1) : value.toFixed(0));
    if (us < 999_500) {
        return `${digits(us / 1000)} ms`;
    }
    const s = us / 1_000_000;
    return s < 120 ? `${digits(s)} s` : `${Math.floor(s / 60)} min ${String(Math.floor(s % 60)).padStart(2, "0")} s`;
}

/** A number with its thousands set apart. */
export function count(number) {
    return String(number).replace(/\B(?=(\d{3})+$)/g, "\u202f");
}

/** A number of things: "1 frame", "3 frames". */
export function number_of(number, thing) {
    return `${count(number)} ${thing}${number === 1 ? "" : "s"}`;
}

/** A JSON text, or undefined when it is none. */
export function parsed(text) {
    try {
        return JSON.parse(text);
    } catch {
        return undefined;
    }
}

const json_token = /"(?:\\.|[^"\\])*"|[{}[\]:,]|[^\s{}[\]:,"]+/g;

function token_class(token, is_name) {
    if (token.startsWith('"')) {
        return is_name ? "json-name" : "json-text";
    }
    return /^[-\d]/.test(token) ? "json-number" : "json-word";
}

/**
 * A JSON text as lines with colours, its tokens as they were sent (a parser would change numbers and drop names that
 * come twice). A text that is no JSON is given as it is.
 */
export function pretty_json(text) {
    const value = parsed(text);
    if (value === undefined || value === null || typeof value !== "object") {
        return visible_nodes(text);
    }
    const nodes = [];
    let depth = 0;
    const new_line = () => nodes.push(`\n${"  ".repeat(depth)}`);
    const tokens = text.match(json_token);
    tokens.forEach((token, i) => {
        const next = tokens[i + 1];
        if (token === "{" || token === "[") {
            nodes.push(token);
            ++depth;
            if (next !== "}" && next !== "]") {
                new_line();
            }
        } else if (token === "}" || token === "]") {
            --depth;
            if (tokens[i - 1] !== "{" && tokens[i - 1] !== "[") {
                new_line();
            }
            nodes.push(token);
        } else if (token === ",") {
            nodes.push(token);
            new_line();
        } else if (token === ":") {
            nodes.push(": ");
        } else {
            nodes.push(make("span", { class: token_class(token, next === ":") }, visible_nodes(token)));
        }
    });
    return nodes;
}

/** A word as a shell reads it back. */
export function shell_word(word) {
    if (/^[\w@%+=:,./-]+$/.test(word)) {
        return word;
    }
    const is_plain = !/[\p{Cc}]/u.test(word);
    return is_plain ? `'${word.replaceAll("'", "'\\''")}'`
        : `$'${word.replace(/[\\']/g, "\\$&").replace(/\p{Cc}/gu,
            (character) => `\\x${character.codePointAt(0).toString(16).padStart(2, "0")}`)}'`;
}

/**
 * The words of a line, with quotes and backslashes as a shell has them.
 *
 * @throws Error  a quote that is not closed
 */
export function words_of(line) {
    const words = [];
    let word = null;
    for (let i = 0; i < line.length; ++i) {
        const character = line[i];
        if (/\s/.test(character)) {
            if (word !== null) {
                words.push(word);
                word = null;
            }
        } else if (character === "'" || character === '"') {
            const end = character === "'" ? line.indexOf("'", i + 1) : closing_quote(line, i + 1);
            if (end < 0) {
                throw new Error(`the quote ${character} is not closed`);
            }
            const inside = line.slice(i + 1, end);
            word = (word ?? "") + (character === "'" ? inside : inside.replace(/\\(["\\$`])/g, "$1"));
            i = end;
        } else {
            const is_escape = character === "\\" && i + 1 < line.length;
            word = (word ?? "") + (is_escape ? line[++i] : character);
        }
    }
    return word === null ? words : [...words, word];
}

function closing_quote(line, from) {
    for (let i = from; i < line.length; ++i) {
        if (line[i] === "\\") {
            ++i;
        } else if (line[i] === '"') {
            return i;
        }
    }
    return -1;
}
