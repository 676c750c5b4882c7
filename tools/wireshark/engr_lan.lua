-- Wireshark dissector of the LAN protocol; docs/protocol.md describes the protocol, and how to use this.
local here = debug.getinfo(1, "S").source:match("^@(.*[/\\])") or ""
local crypto = dofile(here .. "engr_lan_crypto.lua")

local HEAD, HEAD_TEXT, TAIL = 0x000055AA, "\0\0\85\170", 0x0000AA55
local HEAD_BYTES, UNCOUNTED, TRAILER = 16, 16, 8
-- A frame that claims more is noise.
local FRAME_MAX = 8 * 1024 * 1024
local TCP_PORT, DISCOVERY_PORT, CONFIGURATION_PORT, FAILURE_PORT = 6668, 6667, 6669, 6670
local KEEPALIVE, PIECE, LOG = 9, 231, 254

-- Name and payload of a request; datagrams below.
local types = {
    -- frame types: written by script/protocol_tables.py
    [7] = {"FRM_TP_CMD", "encrypted"},
    [8] = {"FRM_DP_REPORT", "encrypted"},
    [9] = {"FRM_KEEPALIVE", "plain"},
    [10] = {"FRM_LOCAL_DP_QUERY", "encrypted"},
    [12] = {"FRM_TOKEN_BIND", "encrypted"},
    [13] = {"FRM_TP_CMD_2", "encrypted"},
    [14] = {"FRM_PERMIT_JOIN", "encrypted"},
    [15] = {"FRM_WIFI_MODIFY", "encrypted"},
    [16] = {"FRM_LOCAL_DP_QUERY_2", "encrypted"},
    [17] = {"FRM_SCENE_CMD", "encrypted"},
    [18] = {"FRM_DP_QUERY", "encrypted"},
    [19] = {"FRM_COM_SCENE_EXEC", "encrypted"},
    [34] = {"FRM_RAW_34", "encrypted"},
    [208] = {"FRM_GRP_OPER", "encrypted"},
    [209] = {"FRM_GRP_EXEC", "encrypted"},
    [224] = {"FRM_DEV_LINE_STAT", "plain"},
    [226] = {"FRM_SCENE_LINKAGE", "encrypted"},
    [227] = {"FRM_GW_UNACTIVE_RPT", "encrypted"},
    [228] = {"FRM_SUB_DEV_UNBIND_RPT", "encrypted"},
    [229] = {"FRM_DEV_UPGRADE_INFO", "encrypted"},
    [230] = {"FRM_DEV_UPGRADE", "encrypted"},
    [231] = {"FRM_DOWNLOAD_FIRMWARE", "plain"},
    [232] = {"FRM_UPGRADE_PERCENT_RPT", "encrypted"},
    [233] = {"FRM_SUBDEVICE_UPDATE_RPT", "encrypted"},
    [240] = {"FRM_USER_BIND_REQ_ENGR", "encrypted"},
    [241] = {"FRM_DEV_LIST", "plain"},
    [242] = {"FRM_DEL_SUB_DEV", "encrypted"},
    [243] = {"FRM_SUB_DEV_BIND_RPT", "encrypted"},
    [244] = {"FRM_SCENE_OPER", "encrypted"},
    [245] = {"FRM_DOWNLOAD_CLOUD_CFG", "encrypted"},
    [246] = {"FRM_DOWNLOAD_APP_CFG", "encrypted"},
    [247] = {"FRM_READ_APP_CFG", "plain"},
    [248] = {"FRM_SCENE_PANEL", "encrypted"},
    [249] = {"FRM_GW_UNACTIVE", "plain"},
    [250] = {"FRM_CHK_SOFT_VER", "encrypted"},
    [251] = {"FRM_NOP", "encrypted"},
    [252] = {"FRM_SET_CHANNEL", "encrypted"},
    [253] = {"FRM_GET_CHANNEL", "plain"},
    [254] = {"FRM_GET_LOG", "plain"},
    -- end of frame types
}
local datagrams = {[1] = "FRM_AP_NW_CFG", [19] = "FRM_UDP_DISCOVERY", [20] = "FRM_UDP_WIFI_ERR"}

local proto = Proto("engr_lan", "Gateway LAN protocol")
local f = {
    number = ProtoField.uint32("engr_lan.number", "Number"),
    kind = ProtoField.uint32("engr_lan.type", "Type"),
    name = ProtoField.string("engr_lan.name", "Name"),
    length = ProtoField.uint32("engr_lan.length", "Bytes that follow"),
    ret = ProtoField.uint32("engr_lan.ret", "Return code"),
    count = ProtoField.uint32("engr_lan.count", "Segments"),
    seq = ProtoField.uint32("engr_lan.seq", "Segment"),
    payload = ProtoField.bytes("engr_lan.payload", "Payload"),
    text = ProtoField.string("engr_lan.text", "Text"),
    key = ProtoField.string("engr_lan.key", "Decrypted with"),
    offset = ProtoField.uint32("engr_lan.piece.offset", "Offset in the image"),
    piece = ProtoField.bytes("engr_lan.piece.data", "Piece of the image"),
    asked_in = ProtoField.framenum("engr_lan.piece.asked_in", "Asked for in", base.NONE, frametype.REQUEST),
    log = ProtoField.string("engr_lan.log", "Whole log"),
    crc = ProtoField.uint32("engr_lan.crc", "CRC", base.HEX),
    tail = ProtoField.uint32("engr_lan.tail", "Tail", base.HEX),
    reply_in = ProtoField.framenum("engr_lan.reply_in", "Reply in", base.NONE, frametype.RESPONSE),
    reply_to = ProtoField.framenum("engr_lan.reply_to", "Reply to", base.NONE, frametype.REQUEST),
    time = ProtoField.double("engr_lan.time", "Seconds since the request"),
    summary = ProtoField.string("engr_lan.summary", "Summary"),
    noise = ProtoField.bytes("engr_lan.noise", "Bytes that belong to no frame"),
}
proto.fields = f
local bad_crc = ProtoExpert.new("engr_lan.bad_crc", "The CRC is wrong; a gateway does not look at it",
    expert.group.CHECKSUM, expert.severity.NOTE)
local bad_tail = ProtoExpert.new("engr_lan.bad_tail", "The tail is wrong: the frame is dropped", expert.group.MALFORMED,
    expert.severity.WARN)
local no_key = ProtoExpert.new("engr_lan.no_key", "No key decrypts the payload", expert.group.UNDECODED,
    expert.severity.WARN)
local failure = ProtoExpert.new("engr_lan.failure", "The gateway refuses", expert.group.RESPONSE_CODE,
    expert.severity.NOTE)
proto.experts = {bad_crc, bad_tail, no_key, failure}

proto.prefs.seed1 = Pref.string("Seed of key 1", "engr-dev-seed-01", "Access point; 16 characters")
proto.prefs.seed2 = Pref.string("Seed of key 2", "engr-dev-seed-02", "Discovery; 16 characters")
proto.prefs.seed3 = Pref.string("Seed of key 3", "engr-dev-seed-03", "TCP of gateways that are not activated")
proto.prefs.local_keys = Pref.string("Local keys", "",
    "Of activated gateways: ADDRESS=KEY or ID=KEY, with blanks between; a key is 16 characters, or 32 hex digits")
proto.prefs.decrypt_kib = Pref.uint("Longest payload to decrypt, KiB", 256, "Longer ones take seconds")

local stream_of = Field.new("tcp.stream")
local json = Dissector.get("json")

-- Keys: {name, schedule}, the local ones by address or id.
local seeds, local_keys = {}, {}
-- What was seen. By stream, type and number: requests, the oldest first. By frame: what belongs to it. By address: the
-- gateway's id. By stream and number: segments of a log. By stream: the packet that asks for a piece.
local requests, links, ids, logs, wanted_pieces

local function read_preferences()
    for n, seed in ipairs({proto.prefs.seed1, proto.prefs.seed2, proto.prefs.seed3}) do
        seeds[n] = #seed == 16 and {name = "key " .. n, schedule = crypto.aes_schedule(crypto.md5(seed))} or nil
    end
    local_keys = {}
    for owner, key in proto.prefs.local_keys:gmatch("([^%s=]+)=(%S+)") do
        if key:match("^" .. ("%x"):rep(32) .. "$") then
            key = key:gsub("%x%x", function(digits) return string.char(tonumber(digits, 16)) end)
        end
        if #key == 16 then
            local_keys[owner] = {name = "local key of " .. owner, schedule = crypto.aes_schedule(key)}
        end
    end
end

function proto.prefs_changed()
    read_preferences()
end

function proto.init()
    read_preferences()
    requests, links, ids, logs, wanted_pieces = {}, {}, {}, {}, {}
end

local function looks_like_text(text)
    return not text:find("[%z\1-\8\14-\31\127]") and (text:find("^{.*}$") or not text:find("[\128-\255]"))
end

-- Keys to try for a gateway's TCP payload, the likeliest first.
local function tcp_keys(address)
    local known = {}
    for _, owner in ipairs({address, ids[address] or ""}) do
        known[#known + 1] = local_keys[owner]
    end
    known[#known + 1] = seeds[3]
    for _, key in pairs(local_keys) do
        known[#known + 1] = key
    end
    return known
end

-- Plain text and name of the key, or nil.
local function decrypt(cipher, keys)
    for _, key in pairs(keys) do
        local text = crypto.decrypt(key.schedule, cipher)
        if text and looks_like_text(text) then
            return text, key.name
        end
    end
end

local function name_of(frame)
    if frame.port ~= TCP_PORT then
        return datagrams[frame.kind] or ("type " .. frame.kind)
    end
    return types[frame.kind] and types[frame.kind][1] or ("type " .. frame.kind)
end

local function keys_of(frame)
    if frame.port == DISCOVERY_PORT then
        return {seeds[2]}
    elseif frame.port ~= TCP_PORT then
        return {seeds[1]}
    end
    return tcp_keys(frame.gateway)
end

local function is_plain(frame)
    if frame.port == TCP_PORT then
        return frame.is_request and types[frame.kind] ~= nil and types[frame.kind][2] == "plain"
    end
    return frame.kind == 1
end

local function link_reply(request, reply, pinfo)
    reply.reply_to, reply.time = request.packet, pinfo.rel_ts - request.time
    request.links.reply_in = request.links.reply_in or pinfo.number
end

-- Remembers what belongs together; called once for each frame, in their order.
local function link(frame, pinfo)
    local known = {}
    links[frame.id] = known
    if frame.port ~= TCP_PORT then
        return
    end
    if frame.kind == PIECE and frame.is_request then
        known.asked_in, wanted_pieces[frame.stream] = wanted_pieces[frame.stream], nil
    elseif frame.kind == PIECE then
        wanted_pieces[frame.stream] = pinfo.number
    end
    -- The answer to a keep-alive has number 0, whatever the number was; any other such frame is no answer.
    local is_keepalive = frame.kind == KEEPALIVE
    local place = table.concat({frame.stream, frame.kind, is_keepalive and 0 or frame.number}, ":")
    if frame.is_request then
        requests[place] = is_keepalive and requests[place] or {}
        table.insert(requests[place], {packet = pinfo.number, time = pinfo.rel_ts, links = known})
    elseif requests[place] and requests[place][1] and (is_keepalive or frame.number > 0) then
        link_reply(requests[place][1], known, pinfo)
        if is_keepalive then
            table.remove(requests[place], 1)
        end
    end
end

local function add_links(frame, tree)
    local known = links[frame.id]
    for _, name in ipairs({"reply_in", "reply_to", "time", "asked_in"}) do
        if known[name] then
            tree:add(f[name], known[name]):set_generated()
        end
    end
end

-- A decrypted or plain text, and its JSON. Returns what the summary says of it.
local function show_text(text, range, pinfo, tree)
    tree:add(f.text, range, text)
    if text:find("^%s*{") then
        local columns = {protocol = tostring(pinfo.cols.protocol), info = tostring(pinfo.cols.info)}
        pcall(json.call, json, ByteArray.new(text, true):tvb("Decrypted payload"), pinfo, tree)
        pinfo.cols.protocol, pinfo.cols.info = columns.protocol, columns.info
    end
    return text
end

local function show_cipher(frame, range, pinfo, tree)
    if range:len() > proto.prefs.decrypt_kib * 1024 then
        return range:len() .. " bytes that are too long to decrypt"
    end
    local text, key = decrypt(range:raw(), keys_of(frame))
    if not text then
        tree:add_proto_expert_info(no_key)
        return range:len() .. " bytes that no key decrypts"
    end
    tree:add(f.key, key):set_generated()
    if frame.port == DISCOVERY_PORT then
        ids[frame.gateway] = text:match('"gwId":"([^"]*)"')
    end
    return show_text(text, range, pinfo, tree)
end

local function show_piece(range, tree)
    if range:len() < 4 then
        return "piece without an offset"
    end
    tree:add(f.offset, range(0, 4))
    local size = range:len() - 4
    if size > 0 then
        tree:add(f.piece, range(4, size))
    end
    return ("offset %d, %d bytes"):format(range(0, 4):uint(), size)
end

-- What the segments say together; nil when one is missing.
local function whole_log(log, count)
    for seq = 1, count do
        if not log[seq] then
            return nil
        end
    end
    return table.concat(log, "", 1, count)
end

-- A segment of the log; the last one shows all of it.
local function show_segment(frame, range, tree)
    local count, seq = range(0, 4):uint(), range(4, 4):uint()
    tree:add(f.count, range(0, 4))
    tree:add(f.seq, range(4, 4))
    local content = range:len() > 8 and range(8):raw() or ""
    if content ~= "" then
        tree:add(f.text, range(8), content)
    end
    local place = frame.stream .. ":" .. frame.number
    if seq == 1 and not links[frame.id].log then
        logs[place] = {}
    end
    local summary = ("segment %d of %d"):format(seq, count)
    links[frame.id].log = links[frame.id].log or logs[place]
    local log = links[frame.id].log
    if log then
        log[seq] = content
        local whole = seq == count and whole_log(log, count)
        if whole then
            tree:add(f.log, whole):set_generated()
            summary = ("%s, %d bytes of log in all"):format(summary, #whole)
        end
    end
    return summary
end

local function show_payload(frame, range, pinfo, tree)
    if frame.port == TCP_PORT and frame.kind == LOG and frame.ret == 0 and range:len() >= 8 then
        return show_segment(frame, range, tree)
    end
    tree:add(f.payload, range)
    if frame.is_request and frame.port == TCP_PORT and frame.kind == PIECE then
        return show_piece(range, tree)
    elseif is_plain(frame) then
        return show_text(range:raw(), range, pinfo, tree)
    end
    return show_cipher(frame, range, pinfo, tree)
end

local function show_trailer(buffer, tree)
    local at = buffer:len() - TRAILER
    local crc = tree:add(f.crc, buffer(at, 4))
    local right = crypto.crc32(buffer:raw(0, at % 65536))
    if buffer(at, 4):uint() ~= right then
        crc:append_text((", should be 0x%08X"):format(right))
        crc:add_proto_expert_info(bad_crc)
    end
    local tail = tree:add(f.tail, buffer(at + 4, 4))
    if buffer(at + 4, 4):uint() ~= TAIL then
        tail:add_proto_expert_info(bad_tail)
    end
end

local function append_info(pinfo, text)
    local before = tostring(pinfo.cols.info)
    pinfo.cols.info = before == "" and text or before .. "  " .. text
end

local function show_noise(buffer, pinfo, root)
    local tree = root:add(proto, buffer(), "Gateway LAN protocol, " .. buffer:len() .. " bytes that belong to no frame")
    tree:add(f.noise, buffer())
    append_info(pinfo, "[" .. buffer:len() .. " bytes that belong to no frame]")
end

local function read_head(buffer, pinfo)
    local is_request = pinfo.dst_port == TCP_PORT or pinfo.dst_port == CONFIGURATION_PORT
    local port = pinfo.src_port == TCP_PORT and TCP_PORT or pinfo.dst_port
    local number, kind = buffer(4, 4):uint(), buffer(8, 4):uint()
    local stream = port == TCP_PORT and stream_of().value or -1
    return {is_request = is_request, port = port, number = number, kind = kind, stream = stream,
        gateway = tostring(is_request and pinfo.dst or pinfo.src),
        id = table.concat({pinfo.number, stream, buffer:offset(), buffer(buffer:len() - TRAILER, 4):uint()}, ":")}
end

-- Number to return code. Returns the bytes they take, and the beginning of the summary.
local function show_head(frame, buffer, tree)
    local name = name_of(frame)
    tree:add(f.number, buffer(4, 4))
    tree:add(f.kind, buffer(8, 4)):append_text(" (" .. name .. ")")
    tree:add(f.name, buffer(8, 4), name)
    tree:add(f.length, buffer(12, 4))
    if frame.is_request then
        return HEAD_BYTES, ("> %d %s"):format(frame.number, name)
    end
    frame.ret = buffer(HEAD_BYTES, 4):uint()
    local ret = tree:add(f.ret, buffer(HEAD_BYTES, 4))
    if frame.ret ~= 0 then
        ret:add_proto_expert_info(failure)
    end
    return HEAD_BYTES + 4, ("< %d %s ret %d"):format(frame.number, name, frame.ret)
end

local function dissect_frame(buffer, pinfo, root)
    local frame = buffer:len() >= HEAD_BYTES + TRAILER and buffer(0, 4):uint() == HEAD and read_head(buffer, pinfo)
    if not frame or (not frame.is_request and buffer:len() < HEAD_BYTES + 4 + TRAILER) then
        return show_noise(buffer, pinfo, root)
    end
    local tree = root:add(proto, buffer())
    local at, summary = show_head(frame, buffer, tree)
    if not links[frame.id] then
        link(frame, pinfo)
    end
    local size = buffer:len() - at - TRAILER
    if size > 0 then
        summary = summary .. " " .. show_payload(frame, buffer(at, size), pinfo, tree)
    end
    show_trailer(buffer, tree)
    add_links(frame, tree)
    tree:add(f.summary, summary):set_generated()
    tree:append_text(", " .. summary)
    append_info(pinfo, summary)
end

-- Bytes of the frame at the start, or of what stands before the next head; nil while that can't be told.
local function frame_bytes(bytes)
    if bytes:sub(1, 4) ~= HEAD_TEXT:sub(1, #bytes) then
        local next_head = bytes:find(HEAD_TEXT, 2, true)
        return next_head and next_head - 1 or math.max(#bytes - 3, 1) -- a head may begin in the last 3
    elseif #bytes < HEAD_BYTES then
        return nil
    end
    local b0, b1, b2, b3 = bytes:byte(13, 16)
    local size = ((b0 * 256 + b1) * 256 + b2) * 256 + b3 + UNCOUNTED
    return (size >= UNCOUNTED + TRAILER and size <= FRAME_MAX) and size or 4
end

local function dissect_stream(buffer, pinfo, root)
    local at = 0
    while at < buffer:len() do
        local left = buffer:len() - at
        local size = frame_bytes(buffer:raw(at, math.min(left, FRAME_MAX)))
        if not size or size > left then
            pinfo.desegment_offset = at
            pinfo.desegment_len = size and size - left or DESEGMENT_ONE_MORE_SEGMENT
            return
        end
        dissect_frame(buffer(at, size):tvb(), pinfo, root)
        at = at + size
    end
end

function proto.dissector(buffer, pinfo, root)
    pinfo.cols.protocol = "ENGR-LAN"
    pinfo.cols.info = ""
    if pinfo.port_type == 2 then -- TCP; the constants have no name in Lua
        dissect_stream(buffer, pinfo, root)
    elseif frame_bytes(buffer:raw()) == buffer:len() then
        dissect_frame(buffer, pinfo, root)
    else
        show_noise(buffer, pinfo, root)
    end
    return buffer:len()
end

DissectorTable.get("tcp.port"):add(TCP_PORT, proto)
for _, port in ipairs({DISCOVERY_PORT, CONFIGURATION_PORT, FAILURE_PORT}) do
    DissectorTable.get("udp.port"):add(port, proto)
end
