-- The station display's traffic for Wireshark and tshark: messages to a unit (TCP and UDP port
-- 4000) and the records that units send back (TCP port 5000). docs/protocol.md explains them.
--
--     tshark -X lua_script:station_display.lua -r capture.pcap
--     Wireshark: copy this file into the folder "Personal Lua Plugins" (Help, About, Folders).

local COMMAND_PORT, RECORD_PORT = 4000, 5000
local TCP_LIMIT, UDP_LIMIT = 4095, 4096

local message = Proto("station_display", "Station Display Message")
local record = Proto("station_record", "Station Display Record")

local TYPES = {
    [1] = "Roll-call request", [3] = "Display alert", [32] = "Reboot", [38] = "HDTV alert",
    [40] = "Set date", [46] = "Stop turnout", [48] = "Set page address", [49] = "HDTV settings",
    [51] = "Detail alert", [52] = "Set map address", [123] = "JSON control",
}
local CODES = { [2] = "Roll-call reply", [39] = "Set-date request", [47] = "Settings request" }
local COLORS = {
    [0] = "empty slot", "red", "blue", "green", "yellow", "orange", "purple", "cyan", "white",
    "pink", "lime", "brown", "teal", "navy", "maroon", "silver", "gray",
}

-- Fields.

local f = {
    type = ProtoField.uint8("station_display.type", "Type", base.DEC, TYPES),
    flag = ProtoField.uint8("station_display.flag", "Alert flag", base.DEC, { [1] = "alert on" }),
    unread = ProtoField.bytes("station_display.unread", "Not read"),
    text_length = ProtoField.uint16("station_display.text_length", "Text length"),
    text = ProtoField.string("station_display.text", "Text"),
    turnout_timer = ProtoField.uint16("station_display.turnout_timer", "Turnout timer in seconds"),
    turnout_end = ProtoField.uint16("station_display.turnout_end", "Turnout end in seconds"),
    turnout_zero = ProtoField.uint16("station_display.turnout_zero", "Turnout zero in seconds"),
    turnout_reverse = ProtoField.uint8("station_display.turnout_reverse", "Turnout reverse"),
    unit = ProtoField.none("station_display.unit", "Unit"),
    unit_color = ProtoField.uint8("station_display.unit.color", "Color", base.DEC, COLORS),
    unit_name = ProtoField.string("station_display.unit.name", "Name"),
    date = ProtoField.string("station_display.date", "Date"),
    page = ProtoField.string("station_display.page", "Page address"),
    map = ProtoField.string("station_display.map", "Map address"),
    quarter_turns = ProtoField.uint8("station_display.quarter_turns", "Quarter turns"),
    json = ProtoField.string("station_display.json", "Object"),
    json_key = ProtoField.string("station_display.json.key", "Key"),
    json_value = ProtoField.string("station_display.json.value", "Value"),
}
message.fields = f

local r = {
    code = ProtoField.uint8("station_record.code", "Code", base.DEC, CODES),
    hardware_address = ProtoField.ether("station_record.hardware_address", "Hardware address"),
    fixed = ProtoField.uint8("station_record.fixed", "Fixed byte"),
    version = ProtoField.uint8("station_record.version", "Version"),
}
record.fields = r

local function malformed(name, text)
    return ProtoExpert.new(name, text, expert.group.MALFORMED, expert.severity.WARN)
end

local e = {
    short = malformed("station_display.short", "The message is too short"),
    long = malformed("station_display.long", "The message is too long: the rest is lost"),
    length = malformed("station_display.wrong_length", "The text length is wrong"),
    ended = malformed("station_display.ended", "A zero byte ends the text early"),
    unknown = malformed("station_display.unknown", "Unknown message type"),
    channel = malformed("station_display.channel", "The message does nothing on this channel"),
    surplus = malformed("station_display.surplus", "The bytes after the message are not read"),
    unit = malformed("station_display.bad_unit", "The unit is wrong"),
    value = malformed("station_display.bad_value", "The value is wrong"),
}
message.experts = e

local re = {
    short = malformed("station_record.wrong_size", "The record has the wrong size"),
    unknown = malformed("station_record.unknown", "Unknown record code"),
    fixed = malformed("station_record.bad_fixed", "The fixed byte is wrong"),
}
record.experts = re

-- Reading: nothing outside the buffer is accessed. Each function returns whether the value was
-- there.

local function add(tree, field, buffer, offset, size)
    if buffer:len() < offset + size then
        tree:add_proto_expert_info(e.short, "The message ends before its byte " .. offset + size)
        return false
    end
    tree:add(field, buffer(offset, size))
    return true
end

-- The bytes between two offsets, as far as the buffer has them.
local function add_unread(tree, buffer, offset, size)
    local there = math.min(size, buffer:len() - offset)
    if there > 0 then
        tree:add(f.unread, buffer(offset, there))
    end
end

local function first_zero(buffer, offset, limit)
    for i = offset, limit - 1 do
        if buffer(i, 1):uint() == 0 then
            return i
        end
    end
    return limit
end

-- A text may come from anyone and end up in a terminal: non-ASCII and control characters are shown
-- as placeholders only, as Wireshark itself does in most places.
local function printable(text)
    return (text:gsub("[^\t\n\r\32-\126]", "\xef\xbf\xbd"))
end

-- A text that runs to its first zero byte, or to the limit; returns its printable form and its
-- length.
local function add_text(tree, field, buffer, offset, limit)
    if offset >= limit then
        return "", 0
    end
    local stop = first_zero(buffer, offset, limit)
    if stop == offset then
        tree:add(field, buffer(offset, 0), "")
        return "", 0
    end
    local range = buffer(offset, stop - offset)
    local text = printable(range:raw())
    tree:add(field, range, text)
    return text, stop - offset
end

local function add_last_text(tree, field, buffer, offset)
    local text, length = add_text(tree, field, buffer, offset, buffer:len())
    if offset + length < buffer:len() then
        add_unread(tree, buffer, offset + length, buffer:len() - offset - length)
        tree:add_proto_expert_info(e.ended)
    end
    return text, length
end

local function expect_end(tree, buffer, offset)
    if buffer:len() > offset then
        add_unread(tree, buffer, offset, buffer:len() - offset)
        tree:add_proto_expert_info(e.surplus)
    end
end

-- Messages. Each returns a summary.

local function display_alert(tree, buffer)
    add(tree, f.flag, buffer, 1, 1)
    add_unread(tree, buffer, 2, 2)
    if not add(tree, f.text_length, buffer, 4, 2) then
        return ""
    end
    local length = buffer(4, 2):uint()
    if buffer:len() == 6 + length + 2 then
        local text, real = add_text(tree, f.text, buffer, 6, 6 + length)
        if real < length then
            tree:add_proto_expert_info(e.ended)
        end
        tree:add(f.turnout_timer, buffer(6 + length, 2))
        return text
    end
    if buffer:len() ~= 6 + length then
        tree:add_proto_expert_info(e.length, "The text length is " .. length .. ", but " ..
            buffer:len() - 6 .. " bytes follow")
    end
    return (add_last_text(tree, f.text, buffer, 6))
end

local function hdtv_alert(tree, buffer)
    local timer = buffer:len() - 5
    if timer < 0 then
        tree:add_proto_expert_info(e.short)
        return ""
    end
    if timer == 0 then
        tree:add_proto_expert_info(e.value,
            "The turnout timer is taken from the type byte and the one after it")
    end
    add_unread(tree, buffer, 1, timer - 1)
    tree:add(f.turnout_timer, buffer(timer, 2))
    add_unread(tree, buffer, timer + 2, 3)
    return buffer(timer, 2):uint() .. " s"
end

local function add_unit(tree, buffer, slot)
    local color, name = 4 + slot, 20 + 32 * slot
    local size = math.min(32, buffer:len() - name)
    if buffer(color, 1):uint() == 0 and (size < 1 or buffer(name, 1):uint() == 0) then
        return
    end
    local unit = tree:add(f.unit, buffer(color, 1))
    unit:add(f.unit_color, buffer(color, 1))
    if size < 32 then
        unit:add_proto_expert_info(e.short, "The name of slot " .. slot + 1 .. " is incomplete")
        return
    end
    local text, length = add_text(unit, f.unit_name, buffer, name, name + 32)
    unit:set_text("Unit: " .. text:gsub("%c", " ") .. ", slot " .. slot + 1)
    local is_empty = buffer(color, 1):uint() == 0
    if buffer(name + 31, 1):uint() ~= 0 then
        unit:add_proto_expert_info(e.unit, "The name has no terminating zero: it is cut to 31 bytes")
    end
    if is_empty then
        unit:add_proto_expert_info(e.unit, "The unit has color 0: its slot counts as empty")
    elseif length == 0 then
        unit:add_proto_expert_info(e.unit, "The unit has no name")
    elseif buffer(name, math.min(length, 31)):raw():find('"', 1, true) then
        unit:add_proto_expert_info(e.unit,
            "A quotation mark in a name makes the alert document unreadable")
    end
end

local function detail_alert(tree, buffer)
    add(tree, f.flag, buffer, 1, 1)
    add_unread(tree, buffer, 2, 2)
    for slot = 0, math.min(16, buffer:len() - 4) - 1 do
        add_unit(tree, buffer, slot)
    end
    local is_whole = add(tree, f.turnout_end, buffer, 532, 2)
        and add(tree, f.turnout_zero, buffer, 534, 2)
        and add(tree, f.turnout_reverse, buffer, 536, 1)
        and add(tree, f.text_length, buffer, 537, 2)
    if not is_whole then
        return ""
    end
    local text, real = add_last_text(tree, f.text, buffer, 539)
    local length = buffer(537, 2):uint()
    if length ~= real then
        tree:add_proto_expert_info(e.length, "The text length is " .. length ..
            ", but the text has " .. real .. " bytes")
    end
    return text
end

local function text_message(field)
    return function(tree, buffer)
        return (add_last_text(tree, field, buffer, 1))
    end
end

local function set_date(tree, buffer)
    local text = add_last_text(tree, f.date, buffer, 1)
    if text == "" then
        tree:add_proto_expert_info(e.value, "The date is empty")
    end
    return text
end

local function set_map_address(tree, buffer)
    local text = add_last_text(tree, f.map, buffer, 1)
    if text ~= "" and not text:lower():match("^https?://") then
        tree:add_proto_expert_info(e.value, "The page follows http and https addresses only")
    end
    if text:find('"', 1, true) then
        tree:add_proto_expert_info(e.value,
            "A quotation mark in the address makes the alert document unreadable")
    end
    return text
end

local function hdtv_settings(tree, buffer)
    if not add(tree, f.quarter_turns, buffer, 1, 1) then
        return ""
    end
    local turns = buffer(1, 1):uint()
    if turns > 3 then
        tree:add_proto_expert_info(e.value, "More than three quarter turns are stored as none")
    end
    expect_end(tree, buffer, 2)
    return 90 * turns .. " degrees"
end

-- As the unit looks for it: in the exact form "key":"value", wherever that begins.
local function has_member(object, key)
    local _, last = object:find('"' .. key .. '":"', 1, true)
    return last ~= nil and object:find('"', last + 1, true) ~= nil
end

local function json_control(tree, buffer)
    local text, length = add_last_text(tree, f.json, buffer, 0)
    local object = buffer(0, length):raw()
    for at, key, value in object:gmatch('()"([^"]*)":"([^"]*)"') do
        tree:add(f.json_key, buffer(at, #key), printable(key))
        tree:add(f.json_value, buffer(at + #key + 3, #value), printable(value))
    end
    if not has_member(object, "play_audio") and not has_member(object, "comm_gw") then
        tree:add_proto_expert_info(e.value, "There is neither \"play_audio\" nor \"comm_gw\"")
    end
    return text
end

local function type_alone(tree, buffer)
    expect_end(tree, buffer, 1)
    return ""
end

local READERS = {
    [1] = type_alone, [3] = display_alert, [32] = type_alone, [38] = hdtv_alert, [40] = set_date,
    [46] = type_alone, [48] = text_message(f.page), [49] = hdtv_settings, [51] = detail_alert,
    [52] = set_map_address, [123] = json_control,
}
local TCP_ONLY, UDP_ONLY = { [46] = true, [52] = true }, { [1] = true }

local function is_over_tcp(pinfo)
    return pinfo.port_type == 2
end

local function check_channel(tree, pinfo, type)
    if is_over_tcp(pinfo) and UDP_ONLY[type] then
        tree:add_proto_expert_info(e.channel, "This message works over UDP only")
    elseif not is_over_tcp(pinfo) and TCP_ONLY[type] then
        tree:add_proto_expert_info(e.channel, "This message works over TCP only")
    end
end

-- A message is what one read returns, and has no framing. It is sent in one write, whose last
-- segment has the PSH flag; before that, a long alert's length field says how much is still to
-- come.
local pushed = Field.new("tcp.flags.push")

local function missing(buffer)
    local smallest_full_segment = 536
    if buffer:len() < smallest_full_segment or pushed().value then
        return 0
    end
    local type, wanted = buffer(0, 1):uint(), 0
    if type == 51 and buffer:len() >= 539 then
        wanted = 539 + buffer(537, 2):uint()
    elseif type == 3 then
        wanted = 6 + buffer(4, 2):uint()
    end
    return wanted <= TCP_LIMIT and math.max(wanted - buffer:len(), 0) or 0
end

function message.dissector(buffer, pinfo, tree)
    if buffer:len() == 0 or pinfo.dst_port ~= COMMAND_PORT then
        return 0
    end
    if is_over_tcp(pinfo) and missing(buffer) > 0 then
        pinfo.desegment_offset = 0
        pinfo.desegment_len = missing(buffer)
        return
    end
    local type = buffer(0, 1):uint()
    local name = TYPES[type] or "Unknown message"
    local subtree = tree:add(message, buffer(), "Station Display Message: " .. name)
    subtree:add(f.type, buffer(0, 1))
    local limit = is_over_tcp(pinfo) and TCP_LIMIT or UDP_LIMIT
    if buffer:len() > limit then
        subtree:add_proto_expert_info(e.long)
        buffer = buffer(0, limit):tvb()
    end
    local summary = ""
    if READERS[type] then
        summary = READERS[type](subtree, buffer)
    else
        add_unread(subtree, buffer, 1, buffer:len() - 1)
        subtree:add_proto_expert_info(e.unknown, "No message has type " .. type)
    end
    check_channel(subtree, pinfo, type)
    pinfo.cols.protocol = "STATION"
    pinfo.cols.info = summary == "" and name or name .. ": " .. summary:gsub("%c", " ")
end

-- Records.

local SIZES = { [2] = 9, [39] = 7, [47] = 7 }

function record.dissector(buffer, pinfo, tree)
    if buffer:len() == 0 or pinfo.dst_port ~= RECORD_PORT then
        return 0
    end
    local code = buffer(0, 1):uint()
    local name = CODES[code] or "Unknown record"
    local subtree = tree:add(record, buffer(), "Station Display Record: " .. name)
    subtree:add(r.code, buffer(0, 1))
    pinfo.cols.protocol = "STATION"
    pinfo.cols.info = name
    if not SIZES[code] then
        subtree:add_proto_expert_info(re.unknown, "No record has code " .. code)
        return
    end
    if buffer:len() ~= SIZES[code] then
        subtree:add_proto_expert_info(re.short, "The record has " .. buffer:len() ..
            " bytes instead of " .. SIZES[code])
    end
    if buffer:len() >= 7 then
        subtree:add(r.hardware_address, buffer(1, 6))
        pinfo.cols.info = name .. " from " .. tostring(buffer(1, 6):ether())
    end
    if code == 2 and buffer:len() >= 9 then
        subtree:add(r.fixed, buffer(7, 1))
        subtree:add(r.version, buffer(8, 1))
        if buffer(7, 1):uint() ~= 12 then
            subtree:add_proto_expert_info(re.fixed, "The fixed byte is not 12")
        end
    end
end

DissectorTable.get("tcp.port"):add(COMMAND_PORT, message)
DissectorTable.get("udp.port"):add(COMMAND_PORT, message)
DissectorTable.get("tcp.port"):add(RECORD_PORT, record)
