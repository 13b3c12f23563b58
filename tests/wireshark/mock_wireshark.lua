-- Runs tools/wireshark/lcf.lua outside Wireshark, on a plain Lua interpreter, with a small
-- stand-in for the part of Wireshark's Lua API the dissector uses. Wireshark 4.0 embeds Lua
-- 5.2 and later releases Lua 5.4; running this under both shows that the dissector decides
-- and prints the same on either.
--
--   lua5.4 mock_wireshark.lua lcf.lua datagrams.hex [device_mac]
--
-- datagrams.hex holds one datagram per line in hexadecimal. For each one it prints a line:
-- understood, outcome, Info column and expert messages, separated by tabs.

local script, input, deviceMac = arg[1], arg[2], arg[3] or ""

base = { NONE = 0, DEC = 1, HEX = 2 }
frametype = { NONE = 0, REQUEST = 1, RESPONSE = 2 }
expert = {
    group = { MALFORMED = 1, PROTOCOL = 2, SEQUENCE = 3 },
    severity = { NOTE = 1, WARN = 2, ERROR = 3 },
}

local function field(kind)
    return function(abbr) return { abbr = abbr, kind = kind } end
end
ProtoField = {
    string = field("string"), bool = field("bool"), framenum = field("framenum"),
    relative_time = field("relative_time"),
}
ProtoExpert = { new = function(abbr) return { abbr = abbr, expert = true } end }
Pref = { string = function(_, default) return default end }
NSTime = { new = function(s, ns) return { s = s, ns = ns } end }

local registered = {}
DissectorTable = {
    get = function(name)
        return { add = function(_, port, proto) registered[name .. ":" .. port] = proto end }
    end,
}

local heuristics = {}
function Proto(name)
    local proto = { name = name, prefs = {} }
    function proto.register_heuristic(self, where, fn) heuristics[where] = fn end
    return proto
end

-- Tvb and TvbRange
local Range = {}
Range.__index = Range
local function newTvb(data)
    local tvb = { data = data }
    function tvb.len() return #data end
    function tvb.reported_len() return #data end
    function tvb.raw(_, off, len)
        assert(off >= 0 and len >= 0 and off + len <= #data, "raw out of range")
        return string.sub(data, off + 1, off + len)
    end
    setmetatable(tvb, {
        __call = function(_, off, len)
            assert(off >= 0 and len > 0 and off + len <= #data, "range out of bounds")
            return setmetatable({ off = off, len = len, text = string.sub(data, off + 1, off + len) }, Range)
        end,
    })
    return tvb
end

-- TreeItem: records field values and expert messages
local record
local Item = {}
Item.__index = Item
local function newItem() return setmetatable({}, Item) end
function Item.add(self, what, a, b)
    assert(type(what) == "table", "add: no field")
    local value
    if getmetatable(a) == Range then
        value = b
        if value == nil then value = a.text end
    else
        value = a
    end
    if what.abbr then
        local list = record.fields[what.abbr] or {}
        record.fields[what.abbr] = list
        list[#list + 1] = value
    end
    return newItem()
end
function Item.add_proto_expert_info(self, e, msg)
    assert(e.expert and type(msg) == "string", "expert info")
    record.experts[#record.experts + 1] = msg
    return self
end
function Item.append_text(self, t)
    assert(type(t) == "string", "append_text: not a string")
    return self
end
function Item.set_generated(self) return self end

dofile(script)
local proto = registered["udp.port:7217"]
assert(proto and proto.dissector and heuristics.udp, "dissector not registered")
proto.prefs.device_mac = deviceMac
if proto.init then proto.init() end

local number = 0
for line in io.lines(input) do
    number = number + 1
    local data = (string.gsub(line, "%x%x", function(h) return string.char(tonumber(h, 16)) end))
    record = { fields = {}, experts = {} }
    local pinfo = { number = number, visited = false, abs_ts = number / 1000, cols = {} }
    proto.dissector(newTvb(data), pinfo, newItem())
    local understood = record.fields["lcf.understood"][1]
    print(table.concat({ understood and "1" or "0", record.fields["lcf.outcome"][1],
        tostring(pinfo.cols.info), table.concat(record.experts, "|") }, "\t"))
end
