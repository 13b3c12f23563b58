-- Wireshark dissector for the configuration protocol of lcfd (UDP port 7217).
--
-- Besides decoding every field, it predicts what a receiving lcfd does with a datagram:
-- lcf.understood is the verdict the daemon writes in its trace line ("Message understood... "
-- or "Message not understood... "), lcf.outcome the action ("STATUS reply", "accept=yes",
-- "accept=no" or "ignored"). The prediction follows the daemon's parser rule for rule,
-- including its lenient ones, on the first 512 bytes of the datagram (all the daemon reads).
--
-- Runs on the Lua 5.2 of Wireshark 4.0 and the Lua 5.4 of later releases: no integer
-- division, no bit operators, no locale-dependent character classes.
--
-- Load it with `wireshark -X lua_script:lcf.lua` or copy it to
-- ~/.local/lib/wireshark/plugins/. Preference lcf.device_mac: see below.

local PORT = 7217
local MAX_DATAGRAM = 512 -- the daemon's receive buffer

local lcf = Proto("lcf", "lcfd configuration protocol")

local F = {
    header = ProtoField.string("lcf.header", "Header"),
    version = ProtoField.string("lcf.version", "Version"),
    command = ProtoField.string("lcf.command", "Command"),
    seqid = ProtoField.string("lcf.seqid", "Sequence identifier"),
    mac = ProtoField.string("lcf.mac", "MAC address"),
    field = ProtoField.string("lcf.field", "Field"),
    key = ProtoField.string("lcf.key", "Key"),
    value = ProtoField.string("lcf.value", "Value"),
    server_key = ProtoField.string("lcf.server_key", "Server key"),
    understood = ProtoField.bool("lcf.understood", "Understood by the daemon", base.NONE),
    outcome = ProtoField.string("lcf.outcome", "Outcome"),
    response_in = ProtoField.framenum("lcf.response_in", "Response in", base.NONE, frametype.RESPONSE),
    request_in = ProtoField.framenum("lcf.request_in", "Request in", base.NONE, frametype.REQUEST),
    time = ProtoField.relative_time("lcf.time", "Time since request"),
}

-- Keys with a field of their own, in the order a STATUS reply writes them.
local NAMED_KEYS = {
    { "ip", "IP address" }, { "netmask", "Netmask" }, { "gateway", "Gateway" },
    { "hostname", "Host name" }, { "ipscheme", "IP scheme" }, { "ntpip", "Time server" },
    { "controller", "Controller name" }, { "housenames", "House names" },
    { "syslogip", "Syslog server" }, { "nameserver", "Name server" },
    { "ntpsync", "NTP synchronisation" }, { "sdusage", "SD card usage" },
    { "sdkversion", "SDK version" }, { "mac1", "MAC address 1" }, { "mac2", "MAC address 2" },
    { "uptime", "Uptime" }, { "loadavg", "Load average" }, { "utcclock", "UTC clock" },
    { "displaytime", "Display time" }, { "accept", "Accepted" },
}
local named = {}
for _, entry in ipairs(NAMED_KEYS) do
    local f = ProtoField.string("lcf." .. entry[1], entry[2])
    named[entry[1]] = f
    F["named_" .. entry[1]] = f
end
named.seqid = F.seqid
named.mac = F.mac

local fieldlist = {}
for _, f in pairs(F) do
    fieldlist[#fieldlist + 1] = f
end
lcf.fields = fieldlist

local E = {
    header = ProtoExpert.new("lcf.header.bad", "Bad header", expert.group.MALFORMED, expert.severity.ERROR),
    version = ProtoExpert.new("lcf.version.refused", "Refused version", expert.group.PROTOCOL, expert.severity.ERROR),
    command = ProtoExpert.new("lcf.command.unknown", "Unknown command word", expert.group.PROTOCOL, expert.severity.ERROR),
    seqid = ProtoExpert.new("lcf.seqid.bad", "Bad sequence identifier field", expert.group.MALFORMED, expert.severity.ERROR),
    mac = ProtoExpert.new("lcf.mac.bad", "MAC group not hexadecimal", expert.group.MALFORMED, expert.severity.ERROR),
    mac_key = ProtoExpert.new("lcf.mac.key", "MAC field without key mac", expert.group.PROTOCOL, expert.severity.WARN),
    query_rest = ProtoExpert.new("lcf.mac.rest", "QUERY MAC field with more fields", expert.group.PROTOCOL, expert.severity.WARN),
    no_mac = ProtoExpert.new("lcf.mac.none", "No MAC address read", expert.group.PROTOCOL, expert.severity.WARN),
    refused = ProtoExpert.new("lcf.field.refused", "Field refuses the ASSIGN", expert.group.PROTOCOL, expert.severity.ERROR),
    dropped = ProtoExpert.new("lcf.field.dropped", "Address value dropped", expert.group.PROTOCOL, expert.severity.WARN),
    ignored_key = ProtoExpert.new("lcf.field.ignored", "Key not assignable", expert.group.PROTOCOL, expert.severity.NOTE),
    list_end = ProtoExpert.new("lcf.list.end", "Empty field ends the list", expert.group.PROTOCOL, expert.severity.WARN),
    server_key = ProtoExpert.new("lcf.server_key.bad", "Not a server key", expert.group.PROTOCOL, expert.severity.ERROR),
    too_long = ProtoExpert.new("lcf.too_long", "Datagram longer than 512 bytes", expert.group.PROTOCOL, expert.severity.WARN),
    other_device = ProtoExpert.new("lcf.other_device", "Request for another controller", expert.group.SEQUENCE, expert.severity.NOTE),
}
lcf.experts = { E.header, E.version, E.command, E.seqid, E.mac, E.mac_key, E.query_rest, E.no_mac,
    E.refused, E.dropped, E.ignored_key, E.list_end, E.server_key, E.too_long, E.other_device }

lcf.prefs.device_mac = Pref.string("Controller MAC address", "",
    "Predict the outcome for the controller with this MAC address (a request naming another " ..
    "address is then ignored). Empty: for the controller the request names in its MAC field " ..
    "(a QUERY without one: any controller).")

------------------------------------------------------------------------------------------
-- Text rules of the daemon. A span {off, len} is a piece of the datagram text `s` (offset
-- from 0); every rule works on spans so that each piece keeps its place in the packet.

local RESERVED = "[#;=]"
local COMMANDS = { QUERY = true, ASSIGN = true, CLEAR = true, ACK = true, STATUS = true }
local ADDRESS_KEYS = { ip = true, netmask = true, gateway = true, ntpip = true, syslogip = true, nameserver = true }
local SERVER_KEYS = { ntpip = true, syslogip = true, nameserver = true }
local LARGEST_LONG = "9223372036854775807" -- strtol stops growing here
local TWO_TO_32 = 4294967296

-- The daemon's splitAt: head before the first `ch`, rest after it; the head is the whole
-- span when `ch` does not occur.
local function split(s, span, ch)
    local off, len = span[1], span[2]
    local p = string.find(s, ch, off + 1, true)
    if p == nil or p > off + len then
        return { off, len }, { off + len, 0 }, false
    end
    local headLen = p - 1 - off
    return { off, headLen }, { p, len - headLen - 1 }, true
end

local function text(s, span)
    return string.sub(s, span[1] + 1, span[1] + span[2])
end

-- toupper in the C locale: only a to z change.
local function upperC(t)
    return (string.gsub(t, "[a-z]", function(c) return string.char(string.byte(c) - 32) end))
end

local function hasNoReserved(t)
    return string.find(t, RESERVED) == nil
end

-- Shows control and 8-bit bytes as \xNN in texts that go to the Info column and expert texts.
local function printable(t)
    return (string.gsub(t, "[%c\127-\255]", function(c)
        return string.format("\\x%02X", string.byte(c))
    end))
end

local function quoted(t)
    local p = printable(t)
    if #p > 60 then p = string.sub(p, 1, 57) .. "..." end
    return '"' .. p .. '"'
end

-- The low 32 bits of strtol's value for a run of digits (saturating at the largest long).
local function addressPartValue(digits)
    local stripped = string.gsub(digits, "^0+", "")
    if #stripped > #LARGEST_LONG or (#stripped == #LARGEST_LONG and stripped > LARGEST_LONG) then
        return TWO_TO_32 - 1 -- the largest long ends in 32 set bits
    end
    local v = 0
    for i = 1, #stripped do
        v = (v * 10 + (string.byte(stripped, i) - 48)) % TWO_TO_32
    end
    return v
end

local function isDottedQuad(value)
    local s = value
    local rest = { 0, #s }
    for _ = 1, 4 do
        local part
        part, rest = split(s, rest, ".")
        local p = text(s, part)
        if string.find(p, "^[0-9]*$") == nil then
            return false
        end
        if addressPartValue(p) > 255 then
            return false
        end
    end
    return true
end

-- Version check: only the digits 3 to 9 are refused.
local function versionRefused(c)
    return string.find(c, "^[3-9]$") ~= nil
end

-- The first two-character MAC group that is not hexadecimal, or nil.
local function badMacGroup(value)
    local rest = { 0, #value }
    for _ = 1, 6 do
        local group
        group, rest = split(value, rest, ":")
        local g = text(value, group)
        if #g == 2 and string.find(g, "^[0-9A-Fa-f][0-9A-Fa-f]$") == nil then
            return g
        end
    end
    return nil
end

------------------------------------------------------------------------------------------
-- Request and response linking: requests by sequence identifier, replies point back.

local requests = {} -- seqid -> list of { frame, time, mac } in frame order
local links = {}    -- frame -> { request = n, response = n, delta = time }

function lcf.init()
    requests = {}
    links = {}
end

------------------------------------------------------------------------------------------

local function dissect(tvb, pinfo, tree)
    local total = tvb:len()
    local n = total
    if n > MAX_DATAGRAM then n = MAX_DATAGRAM end
    local s = tvb:raw(0, n)

    local function range(span)
        if span[2] > 0 then return tvb(span[1], span[2]) end
        return nil
    end

    pinfo.cols.protocol = "LCF"
    local root = tree:add(lcf, tvb(0, n))

    local function addText(parent, field, span, label)
        local r = range(span)
        local item
        if r then
            item = parent:add(field, r, text(s, span))
        else
            item = parent:add(field, "")
        end
        if label then item:append_text(label) end
        return item
    end

    -- after a bad header the daemon reads nothing more: only the header's own expert info
    local quiet = false
    local function experted(item, e, msg)
        if not quiet then item:add_proto_expert_info(e, msg) end
    end

    local reported = tvb:reported_len()
    if reported > MAX_DATAGRAM then
        experted(root, E.too_long, "Datagram of " .. reported .. " bytes: the daemon reads only the first " ..
            MAX_DATAGRAM .. " and loses the other " .. (reported - MAX_DATAGRAM))
    end

    -- one field "key=value": lcf.key, lcf.value and the named field of the key (seqid and
    -- mac only in their own positions)
    local function addPair(span, listed)
        local k, v = split(s, span, "=")
        if span[2] == 0 then return root, "", "" end -- no field here
        local item = addText(root, F.field, span)
        addText(item, F.key, k)
        addText(item, F.value, v)
        local key = text(s, k)
        local f = named[key]
        if f and not (listed and (key == "seqid" or key == "mac")) then addText(item, f, v) end
        return item, text(s, k), text(s, v)
    end

    -- every "#"-separated field of a span, empty ones left out; the first one's item
    local function addFields(span)
        local first, more, found = split(s, span, "#")
        local item = addPair(first, true)
        while found do
            local f
            f, more, found = split(s, more, "#")
            addPair(f, true)
        end
        return item
    end

    local all = { 0, n }
    local headerSpan, rest = split(s, all, "#")
    local header = text(s, headerSpan)
    local headerItem = addText(root, F.header, headerSpan)
    local headerOk = true
    if #header ~= 4 or string.sub(header, 1, 3) ~= "LCF" then
        headerOk = false
        experted(headerItem, E.header, "Header " .. quoted(header) ..
            " is not \"LCF\" followed by one version character: the daemon does not understand the datagram and does not answer")
    else
        local vitem = addText(headerItem, F.version, { headerSpan[1] + 3, 1 })
        local v = string.sub(header, 4, 4)
        if versionRefused(v) then
            headerOk = false
            experted(vitem, E.version, "Version " .. v ..
                " is refused (the daemon reads versions below 3): it does not understand the datagram and does not answer")
        end
    end
    quiet = not headerOk

    local cmdSpan, remainder = split(s, rest, "#")
    local word = text(s, cmdSpan)
    local cmdItem = addText(root, F.command, cmdSpan)
    local command = nil
    if COMMANDS[word] then
        command = word
    elseif headerOk then
        if word == "" then
            experted(cmdItem, E.command, "No command word: the daemon does not understand the datagram and does not answer")
        elseif COMMANDS[upperC(word)] then
            experted(cmdItem, E.command, "Command word " .. quoted(word) .. " is " .. upperC(word) ..
                " in another case: command words are case-sensitive, so the daemon does not understand it and does not answer")
        else
            experted(cmdItem, E.command, "Unknown command word " .. quoted(word) ..
                ": the daemon does not understand it and does not answer")
        end
    end

    local pref = upperC(lcf.prefs.device_mac or "")
    local understood, outcome = false, "ignored"
    local seqid, mac = "", ""            -- as the daemon keeps them
    local hasSeqid = false               -- a sequence identifier was read: replies can be linked
    local macWritten = nil               -- the MAC field's value as written (display)
    local summary = {}

    -- the daemon's parseSeqId; reports why it fails
    local function seqidField(span)
        local item, k, v = addPair(span, true)
        if k == "seqid" then addText(item, F.seqid, (select(2, split(s, span, "=")))) end
        if span[2] == 0 then
            return false, item, "No sequence identifier field", E.seqid
        end
        if k ~= "seqid" then
            return false, item, "Sequence identifier field has key " .. quoted(k) .. ", not \"seqid\"", E.seqid
        end
        if not hasNoReserved(v) then
            return false, item, "Sequence identifier " .. quoted(v) .. " holds a reserved character (# ; =)", E.seqid
        end
        seqid = v
        hasSeqid = true
        return true, item
    end

    -- the daemon's parseMac on a span (for QUERY the whole remainder)
    local function macField(span, query)
        local k, v = split(s, span, "=")
        local key, value = text(s, k), text(s, v)
        macWritten = value
        local item
        if query then
            -- the daemon reads the span whole as one "mac=" field; shown field by field
            item = addFields(span)
            if v[2] > 0 then addText(item, F.mac, v) end
        else
            item = addPair(span, true)
            if v[2] > 0 then addText(item, F.mac, v) end
        end
        if key == "mac" then
            local bad = badMacGroup(value)
            if bad then
                return false, item, "MAC group " .. quoted(bad) .. " is not hexadecimal", E.mac
            end
        elseif span[2] > 0 then
            local what = "its value " .. quoted(value) .. " as the address, unchecked"
            if value == "" then
                what = "the empty address"
                if query then what = what .. ", so the QUERY goes to every controller" end
            end
            experted(item, E.mac_key, "MAC field has key " .. quoted(key) .. ", not \"mac\": the daemon takes " .. what)
        end
        mac = upperC(value)
        return true, item
    end

    local function addressed(isQuery)
        if isQuery and mac == "" then return true end
        if pref ~= "" then return mac == pref end
        -- no preference: the controller the request names, when a controller can have that address
        return mac ~= "" and string.find(mac, "#", 1, true) == nil
    end
    local function otherDevice(item)
        if pref ~= "" and mac ~= "" and mac ~= pref then
            experted(item, E.other_device, "Request for " .. quoted(mac) .. ", not for controller " .. pref ..
                " (preference lcf.device_mac): that controller ignores it")
        end
    end

    if command == "ACK" or command == "STATUS" then
        -- replies: the daemon reads nothing after the word and ignores them
        understood = true
        local more = remainder
        local values = {}
        while more[2] > 0 do
            local f
            f, more = split(s, more, "#")
            local _, k, v = addPair(f)
            if values[k] == nil then values[k] = v end
        end
        seqid = values.seqid or ""
        hasSeqid = values.seqid ~= nil
        mac = upperC(values.mac or "")
        if values.seqid then summary[#summary + 1] = "seqid=" .. printable(seqid) end
        if command == "STATUS" then
            if values.mac then summary[#summary + 1] = printable(values.mac) end
            if values.ip then summary[#summary + 1] = "ip=" .. printable(values.ip) end
        elseif values.accept then
            summary[#summary + 1] = "accept=" .. printable(values.accept)
        end
    elseif command == "QUERY" then
        local seqSpan, macSpan = split(s, remainder, "#")
        local ok, item, why, e = seqidField(seqSpan)
        if ok then
            ok, item, why, e = macField(macSpan, true)
        else
            addFields(macSpan)
        end
        summary[#summary + 1] = printable(text(s, seqSpan))
        if not ok then
            experted(item, e, why .. ": the daemon does not understand the QUERY and does not answer")
            if macWritten then summary[#summary + 1] = printable(macWritten) end
        else
            understood = true
            if mac == "" then
                summary[#summary + 1] = "(every controller)"
            else
                summary[#summary + 1] = printable(mac)
            end
            if string.find(mac, "#", 1, true) then
                experted(item, E.query_rest, "The QUERY's MAC field carries more fields: the daemon reads " ..
                    quoted(mac) .. " whole as the address, which no controller has: answered by no one")
            end
            if addressed(true) then
                outcome = "STATUS reply"
            else
                otherDevice(item)
            end
        end
    elseif command == "ASSIGN" or command == "CLEAR" then
        local seqSpan, after = split(s, remainder, "#")
        local macSpan, last = split(s, after, "#")
        local parsed = false
        local ok, item, why, e = seqidField(seqSpan)
        local stopped = not ok
        if ok then
            ok, item, why, e = macField(macSpan, false)
            stopped = not ok
        else
            addPair(macSpan, true)
        end
        if stopped then
            experted(item, e, why ..
                ": the daemon stops before the address, so every controller that knows its MAC ignores the " .. command)
        end
        summary[#summary + 1] = printable(text(s, seqSpan))
        local _, macValue = split(s, macSpan, "=")
        if macValue[2] > 0 then summary[#summary + 1] = printable(upperC(text(s, macValue))) end
        if command == "ASSIGN" then
            -- the daemon's parseFieldList and parseField
            local listOk = true
            local reading = not stopped
            local more = last
            while true do
                local f, nxt = split(s, more, "#")
                if f[2] == 0 then
                    if nxt[2] > 0 then
                        local endItem = root:add(F.field, tvb(f[1], 1), "")
                        if reading then
                            experted(endItem, E.list_end,
                                "Empty field ends the ASSIGN list: the daemon never reads the fields after it")
                        end
                        reading = false
                        more = nxt
                    else
                        break
                    end
                else
                    more = nxt
                    local fitem, k, v = addPair(f, true)
                    local fieldText = printable(text(s, f))
                    local verdict, msg = true, nil
                    e = nil
                    if k == "" then
                        verdict, msg = false, "Empty key"
                    elseif v == "" then
                        verdict, msg = false, "Empty value for " .. quoted(k)
                    elseif k == "ipscheme" then
                        if v ~= "STATIC" and v ~= "DHCP" then
                            verdict, msg = false, "ipscheme " .. quoted(v) .. " is not STATIC or DHCP (upper case)"
                        end
                    elseif k == "utcclock" then
                        verdict = true
                    elseif ADDRESS_KEYS[k] and isDottedQuad(v) then
                        verdict = true
                    elseif not hasNoReserved(k) then
                        verdict, msg = false, "Key " .. quoted(k) .. " holds a reserved character (# ; =)"
                    elseif not hasNoReserved(v) then
                        verdict, msg = false, "Value " .. quoted(v) .. " of " .. k .. " holds a reserved character (# ; =)"
                    elseif ADDRESS_KEYS[k] then
                        msg, e = k .. " " .. quoted(v) ..
                            " is not a dotted address: the daemon drops it silently and keeps the present " .. k ..
                            "; the rest of the ASSIGN still counts", E.dropped
                    else
                        msg, e = "Key " .. quoted(k) .. " is not one the daemon assigns: it ignores the field", E.ignored_key
                    end
                    -- the Info column marks each field as lcf watch does: what the daemon
                    -- will not take, and what it never reads
                    if not reading then
                        fieldText = fieldText .. "(unread)"
                    elseif not verdict then
                        fieldText = fieldText .. "(refused)"
                    elseif e == E.dropped then
                        fieldText = fieldText .. "(dropped)"
                    elseif e == E.ignored_key then
                        fieldText = fieldText .. "(ignored)"
                    end
                    summary[#summary + 1] = fieldText
                    if reading then
                        if not verdict then
                            experted(fitem, E.refused, msg .. ": the daemon refuses the ASSIGN (accept=no)")
                            listOk = false
                            reading = false
                        elseif msg then
                            experted(fitem, e, msg)
                        end
                    end
                end
            end
            parsed = ok and listOk
        else
            if ok then
                local keyItem = addText(root, F.server_key, last)
                parsed = SERVER_KEYS[text(s, last)] == true
                if not parsed then
                    local what = "has no server key"
                    if last[2] > 0 then what = "names " .. quoted(text(s, last)) .. ", not exactly a server key" end
                    experted(keyItem, E.server_key, "CLEAR " .. what ..
                        " (ntpip, syslogip or nameserver): the daemon refuses it (accept=no)")
                end
            elseif last[2] > 0 then
                addText(root, F.server_key, last)
            end
            summary[#summary + 1] = printable(text(s, last))
        end
        if not addressed(false) then
            understood = true
            if not stopped and mac == "" then
                experted(root, E.no_mac, "No MAC address: every controller that knows its MAC ignores the " .. command)
            elseif not stopped then
                otherDevice(root)
            end
        elseif not parsed then
            outcome = "accept=no"
        else
            understood = true
            outcome = "accept=yes"
        end
    end

    if not headerOk then
        understood, outcome = false, "ignored"
    end

    local v = root:add(F.understood, understood)
    v:set_generated()
    root:add(F.outcome, outcome):set_generated()

    -- request and response linking, by sequence identifier and MAC address
    local frame = pinfo.number
    if not pinfo.visited and headerOk and hasSeqid then
        if command == "QUERY" or command == "ASSIGN" or command == "CLEAR" then
            local list = requests[seqid] or {}
            requests[seqid] = list
            list[#list + 1] = { frame = frame, time = pinfo.abs_ts, mac = mac, command = command }
        elseif command == "ACK" or command == "STATUS" then
            local list = requests[seqid]
            if list then
                for i = #list, 1, -1 do
                    local r = list[i]
                    local kind = (command == "STATUS") == (r.command == "QUERY")
                    if kind and (r.mac == "" or r.mac == mac) then
                        links[frame] = { request = r.frame, delta = pinfo.abs_ts - r.time }
                        local back = links[r.frame] or {}
                        links[r.frame] = back
                        if back.response == nil then back.response = frame end
                        break
                    end
                end
            end
        end
    end
    local link = links[frame]
    if link then
        if link.response then root:add(F.response_in, link.response):set_generated() end
        if link.request then
            root:add(F.request_in, link.request):set_generated()
            root:add(F.time, NSTime.new(math.floor(link.delta), math.floor((link.delta % 1) * 1e9 + 0.5))):set_generated()
        end
    end

    local info = word ~= "" and printable(word) or "(no command)"
    for _, part in ipairs(summary) do
        if #part > 60 then part = string.sub(part, 1, 57) .. "..." end
        info = info .. " " .. part
    end
    if not headerOk then info = "[bad header " .. quoted(header) .. "] " .. info end
    if not understood then info = info .. " [not understood]" end
    pinfo.cols.info = info
    root:append_text(", " .. (understood and "understood" or "not understood") .. ", " .. outcome)
    return total
end

function lcf.dissector(tvb, pinfo, tree)
    if tvb:len() == 0 then return 0 end
    return dissect(tvb, pinfo, tree)
end

-- On other ports: a datagram that starts with "LCF", one version character, "#" and a letter.
local function heuristic(tvb, pinfo, tree)
    if tvb:len() < 6 then return false end
    local start = tvb:raw(0, 6)
    if string.find(start, "^LCF[^#]#[A-Za-z]") == nil then return false end
    dissect(tvb, pinfo, tree)
    return true
end

DissectorTable.get("udp.port"):add(PORT, lcf)
lcf:register_heuristic("udp", heuristic)
