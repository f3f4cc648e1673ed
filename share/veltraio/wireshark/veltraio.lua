-- SPDX-License-Identifier: GPL-3.0-or-later
--
-- Wireshark dissector for the protocol between the VeltraIO plug-in and receivers, as docs/wire-format.md describes it.
-- docs/wireshark.md says how it is installed and what can be asked with it.

local LONGEST_ENVELOPE = 32767
local HEADER_BYTES = 15
local LIMIT_UNLESS_ANNOUNCED = 460

-- Messages of the host, and what the receiver answers to them; both sides send some of them.
local ANSWERS = {
  Request = "", -- the kind of request decides
  Ping = "Pong",
  OperationModeInfo = "Acknowledge",
  StartStimulus = "Acknowledge",
  StopStimulus = "Acknowledge",
  Volume = "Acknowledge",
  ChannelAttenuation = "Acknowledge",
  ActiveFilterSlot = "Acknowledge",
  FilteringState = "Acknowledge",
  RemoveFilter = "Acknowledge",
  LoadFilter = "Acknowledge",
  FilterData = "Acknowledge",
  FilterChannel = "Acknowledge",
  FilterDataChunk = "Acknowledge",
  DownloadCancelled = "Acknowledge",
  StartStimulusGeneric = "Acknowledge",
}

local FROM_RECEIVER = {
  ProtocolInfo = true, Unit = true, TopologyInfo = true, StimulusInfo = true, StimulusState = true, Acknowledge = true,
  Pong = true, AudioData = true, SpeakerPresenceInformation = true, LoadFilterProgress = true,
}

local FROM_BOTH = { Volume = true, ChannelAttenuation = true, ActiveFilterSlot = true, FilteringState = true }

local REQUESTS = {
  [0] = "Unit", "Volume", "ChannelAttenuation", "ActiveFilterSlot", "StimulusState", "FilteringState", "TopologyInfo",
  "StimulusInfo", "ProtocolInfo",
}

-- Where the fields are that have filters of their own.
local SLOT_FIELD = {
  LoadFilter = 2, FilterData = 2, FilterDataChunk = 2, ActiveFilterSlot = 2, RemoveFilter = 2, DownloadCancelled = 2,
}

local function hash(bytes)
  local value, whole = 0, #bytes - #bytes % 4
  for i = 1, whole, 4 do -- four at a time stay below the 53 bits of a number
    local a, b, c, d = bytes:byte(i, i + 3)
    value = (value * 923521 + a * 29791 + b * 961 + c * 31 + d) % 4294967296
  end
  for i = whole + 1, #bytes do
    value = (value * 31 + bytes:byte(i)) % 4294967296
  end
  return value
end

local NAMES = {}
for name in pairs(ANSWERS) do NAMES[hash("veltraio." .. name)] = name end
for name in pairs(FROM_RECEIVER) do NAMES[hash("veltraio." .. name)] = name end

local veltraio = Proto("veltraio", "VeltraIO receiver protocol")

veltraio.prefs.ports = Pref.range("TCP ports", "", "Ports of receivers; other ports are recognised by the envelopes", 65535)

local f = {
  marker = ProtoField.bytes("veltraio.marker", "Marker"),
  length = ProtoField.uint32("veltraio.length", "Length of the body"),
  identifier = ProtoField.uint32("veltraio.identifier", "Identifier", base.HEX),
  message = ProtoField.string("veltraio.message", "Message"),
  checksum = ProtoField.uint32("veltraio.checksum", "Checksum", base.HEX),
  checksum_good = ProtoField.bool("veltraio.checksum_good", "Checksum is good"),
  body = ProtoField.bytes("veltraio.body", "Body"),
  request = ProtoField.string("veltraio.request", "Asks for"),
  slot = ProtoField.uint32("veltraio.slot", "Slot"),
  rate = ProtoField.uint32("veltraio.rate", "Sample rate of the block"),
  offset = ProtoField.uint32("veltraio.offset", "Offset in the block"),
  data = ProtoField.bytes("veltraio.data", "Filter data"),
  refusal = ProtoField.string("veltraio.refusal", "Refused"),
  noise = ProtoField.bytes("veltraio.noise", "Bytes outside of envelopes"),
  answer_in = ProtoField.framenum("veltraio.answer_in", "Answer in", base.NONE, frametype.RESPONSE),
  answer_to = ProtoField.framenum("veltraio.answer_to", "Answer to", base.NONE, frametype.REQUEST),
  answer_time = ProtoField.double("veltraio.answer_time", "Seconds to the answer"),
}
veltraio.fields = f

local WARN, MALFORMED, NOTE = expert.severity.WARN, expert.group.MALFORMED, expert.severity.NOTE
local e = {
  checksum = ProtoExpert.new("veltraio.wrong_checksum", "The checksum is wrong", expert.group.CHECKSUM, expert.severity.ERROR),
  unknown = ProtoExpert.new("veltraio.unknown", "No message has this identifier", expert.group.UNDECODED, WARN),
  above_limit = ProtoExpert.new(
    "veltraio.above_limit", "The envelope is longer than the announced limit", expert.group.PROTOCOL, WARN),
  too_long = ProtoExpert.new("veltraio.too_long", "The envelope would be longer than 32767 bytes", MALFORMED, WARN),
  noise = ProtoExpert.new("veltraio.stray", "Bytes that belong to no envelope", MALFORMED, WARN),
  refused = ProtoExpert.new("veltraio.is_refused", "The receiver refused", expert.group.RESPONSE_CODE, NOTE),
  unanswered = ProtoExpert.new("veltraio.unanswered", "No answer", expert.group.SEQUENCE, WARN),
  unasked = ProtoExpert.new("veltraio.unasked", "Answer to no question", expert.group.SEQUENCE, WARN),
}
veltraio.experts = e

local tcp_stream = Field.new("tcp.stream")
local protobuf = Dissector.get("protobuf")

-- What is known of each TCP stream, and of each envelope of each frame in the order of the first pass.
local streams, envelopes_of = {}, {}

function veltraio.init()
  streams, envelopes_of = {}, {}
end

-- The top-level fields of a serialised message: number, value or text, and where the text begins. Stops at what it does
-- not understand.
local function fields_of(bytes)
  local at, list = 1, {}

  local function varint()
    local value, scale = 0, 1
    while at <= #bytes do
      local byte = bytes:byte(at)
      at = at + 1
      value = value + (byte % 128) * scale
      if byte < 128 then return value end
      scale = scale * 128
    end
  end

  while at <= #bytes do
    local tag = varint()
    if not tag then break end
    local kind, number, value, start = tag % 8, math.floor(tag / 8), nil, nil
    if kind == 0 then
      value = varint()
    elseif kind == 1 or kind == 5 then
      at = at + (kind == 1 and 8 or 4)
      value = 0
    elseif kind == 2 then
      local size = varint()
      if size and at + size - 1 <= #bytes then
        start, value = at - 1, bytes:sub(at, at + size - 1)
        at = at + size
      end
    end
    if not value then break end
    list[#list + 1] = { number = number, value = value, start = start }
  end
  return list
end

local function value_of(fields, number)
  for _, field in ipairs(fields) do
    if field.number == number then return field.value, field.start end
  end
end

-- The side that asks: it is known from the first message that only one side sends, and begins otherwise.
local function is_from_host(stream, name, pinfo)
  local source = tostring(pinfo.src) .. ":" .. pinfo.src_port
  if not stream.host then
    local from_receiver = FROM_RECEIVER[name]
    stream.host = from_receiver and tostring(pinfo.dst) .. ":" .. pinfo.dst_port or source
  end
  return stream.host == source
end

local function expected_answer(name, fields)
  if name ~= "Request" then return ANSWERS[name] end
  return REQUESTS[value_of(fields, 1) or -1] or ""
end

-- Works out, once, what an envelope is in its conversation.
local function learn(stream, name, fields, size, is_good, pinfo)
  local known = { frame = pinfo.number, name = name, from_host = is_from_host(stream, name, pinfo) }

  if known.from_host then
    known.above_limit = stream.limit and stream.limit > 0 and size > stream.limit and stream.limit or nil
    if is_good and ANSWERS[name] then
      known.expects = expected_answer(name, fields)
      known.time = pinfo.abs_ts
      stream.open[#stream.open + 1] = known
    end
    return known
  end

  if name == "ProtocolInfo" and is_good then
    stream.limit = value_of(fields, 2) or LIMIT_UNLESS_ANNOUNCED
  end
  if name == "AudioData" or name == nil then return known end

  -- The oldest question that this can be the answer to; those before it have none.
  for place, question in ipairs(stream.open) do
    if name == "Acknowledge" or name == question.expects then
      for _ = 1, place do table.remove(stream.open, 1) end
      question.answer, known.question = known, question
      known.time_s = pinfo.abs_ts - question.time
      return known
    end
  end
  known.is_unasked = true
  return known
end

local function add_details(tree, body, name, fields)
  local slot = SLOT_FIELD[name] and value_of(fields, SLOT_FIELD[name])
  if slot then tree:add(f.slot, body(), slot) end
  if name == "Request" then tree:add(f.request, body(), REQUESTS[value_of(fields, 1) or -1] or "unknown") end
  if name == "FilterData" then tree:add(f.rate, body(), value_of(fields, 3) or 0) end
  if name == "FilterDataChunk" then
    tree:add(f.offset, body(), value_of(fields, 3) or 0)
    local data, start = value_of(fields, 4)
    if data and #data > 0 then tree:add(f.data, body(start, #data)) end
  end
  if name == "Acknowledge" and value_of(fields, 1) == 0 then
    tree:add(f.refusal, body(), value_of(fields, 2) or ""):add_proto_expert_info(e.refused)
  end
end

local function add_conversation(tree, envelope, known, is_complete)
  if known.above_limit then
    envelope:add_proto_expert_info(e.above_limit, "The envelope is longer than the announced " .. known.above_limit .. " bytes")
  end
  if known.answer then
    tree:add(f.answer_in, known.answer.frame):set_generated()
    tree:add(f.answer_time, known.answer.time_s):set_generated()
  elseif known.expects and is_complete then
    envelope:add_proto_expert_info(e.unanswered)
  end
  if known.question then
    tree:add(f.answer_to, known.question.frame):set_generated()
    tree:add(f.answer_time, known.time_s):set_generated()
  elseif known.is_unasked then
    envelope:add_proto_expert_info(e.unasked)
  end
end

local function summary_of(name, fields)
  if name == "Request" then return "Request " .. (REQUESTS[value_of(fields, 1) or -1] or "?") end
  if name == "FilterDataChunk" then
    return string.format("FilterDataChunk slot %d offset %d", value_of(fields, 2) or 0, value_of(fields, 3) or 0)
  end
  if name == "Acknowledge" and value_of(fields, 1) == 0 then return "refused: " .. (value_of(fields, 2) or "no reason") end
  return name or "unknown message"
end

local function dissect_envelope(tvb, pinfo, tree)
  local identifier = tvb(7, 4):uint()
  local name = NAMES[identifier]
  local body_size = tvb:len() - HEADER_BYTES
  local body = body_size > 0 and tvb(HEADER_BYTES):tvb() or nil
  local bytes = body and body:raw() or ""
  local is_good = hash(bytes) == tvb(11, 4):uint()
  local fields = is_good and fields_of(bytes) or {}

  local number = tcp_stream().value
  local stream = streams[number] or { open = {} }
  streams[number] = stream
  local frame = envelopes_of[pinfo.number] or { next = 1 }
  envelopes_of[pinfo.number] = frame
  local known
  if pinfo.visited then -- each dissection goes through all envelopes of a frame
    known = frame[frame.next] or {}
    frame.next = frame.next % math.max(#frame, 1) + 1
  else
    known = learn(stream, name, fields, tvb:len(), is_good, pinfo)
    frame[#frame + 1] = known
  end

  local item = tree:add(veltraio, tvb(), "VeltraIO, " .. summary_of(name, fields))
  item:add(f.marker, tvb(0, 3))
  item:add(f.length, tvb(3, 4))
  local id_item = item:add(f.identifier, tvb(7, 4))
  if name then
    item:add(f.message, tvb(7, 4), name)
  else
    id_item:add_proto_expert_info(e.unknown)
  end
  local sum_item = item:add(f.checksum, tvb(11, 4))
  item:add(f.checksum_good, tvb(11, 4), is_good):set_generated()
  if not is_good then
    sum_item:add_proto_expert_info(e.checksum, string.format("The checksum is wrong, 0x%08x is right", hash(bytes)))
  end

  if body then
    item:add(f.body, body())
    if name and is_good then add_details(item, body, name, fields) end
  end
  add_conversation(item, item, known, pinfo.visited)

  if name and is_good and body then
    pinfo.private["pb_msg_type"] = "message,veltraio." .. name
    pcall(Dissector.call, protobuf, body, pinfo, item)
  end
  return summary_of(name, fields)
end

-- Where the next marker begins, or as much of one as there is at the end. A byte that breaks a marker is not the beginning
-- of another one.
local MARKER = { 0x21, 0x01, 0xFF }

local function find_marker(tvb, from)
  local at, matched = from, 0
  while at < tvb:len() do
    if tvb(at, 1):uint() == MARKER[matched + 1] then
      matched = matched + 1
      if matched == 3 then return at - 2 end
    else
      matched = 0
    end
    at = at + 1
  end
  return at - matched
end

local function add_noise(tvb, tree, from, to, reason)
  if to > from then
    local item = tree:add(veltraio, tvb(from, to - from), "VeltraIO, outside of envelopes")
    item:add(f.noise, tvb(from, to - from)):add_proto_expert_info(reason)
  end
end

function veltraio.dissector(tvb, pinfo, tree)
  local at, said = 0, {}

  while at < tvb:len() do
    local start = find_marker(tvb, at)
    add_noise(tvb, tree, at, start, e.noise)
    at = start

    local left = tvb:len() - at
    if left == 0 then break end
    if left < 7 then
      pinfo.desegment_offset, pinfo.desegment_len = at, DESEGMENT_ONE_MORE_SEGMENT
      break
    end

    local length = tvb(at + 3, 4):uint()
    if length > LONGEST_ENVELOPE - HEADER_BYTES then
      add_noise(tvb, tree, at, at + 7, e.too_long)
      at = at + 7
    elseif left < HEADER_BYTES + length then
      pinfo.desegment_offset, pinfo.desegment_len = at, HEADER_BYTES + length - left
      break
    else
      said[#said + 1] = dissect_envelope(tvb(at, HEADER_BYTES + length):tvb(), pinfo, tree)
      at = at + HEADER_BYTES + length
    end
  end

  pinfo.cols.protocol = "VeltraIO"
  if #said > 0 then
    pinfo.cols.info = #said > 4 and said[1] .. " and " .. (#said - 1) .. " more" or table.concat(said, ", ")
  end
  return tvb:len()
end

local function looks_like_it(tvb, pinfo, tree)
  if tvb:len() < 3 or tvb(0, 3):uint() ~= 0x2101FF then return false end
  if tvb:len() >= 7 and tvb(3, 4):uint() > LONGEST_ENVELOPE - HEADER_BYTES then return false end
  pinfo.conversation = veltraio
  veltraio.dissector(tvb, pinfo, tree)
  return true
end

veltraio:register_heuristic("tcp", looks_like_it)

local tcp_ports = DissectorTable.get("tcp.port")
local ports_now = veltraio.prefs.ports

function veltraio.prefs_changed()
  if ports_now ~= veltraio.prefs.ports then
    if ports_now ~= "" then tcp_ports:remove(ports_now, veltraio) end
    ports_now = veltraio.prefs.ports
    if ports_now ~= "" then tcp_ports:add(ports_now, veltraio) end
  end
end

-- Statistics: exchanges by message, with how many were refused or not answered, and the times to the answer.

local function exchanges_text()
  local rows, names = {}, {}
  for _, frame in pairs(envelopes_of) do
    for _, known in ipairs(frame) do
      if known.expects then
        local name = known.name == "Request" and "Request " .. known.expects or known.name
        local row = rows[name]
        if not row then
          row = { count = 0, answered = 0, sum = 0, least = math.huge, most = 0 }
          rows[name], names[#names + 1] = row, name
        end
        row.count = row.count + 1
        if known.answer then
          local ms = 1000 * known.answer.time_s
          row.answered, row.sum = row.answered + 1, row.sum + ms
          row.least, row.most = math.min(row.least, ms), math.max(row.most, ms)
        end
      end
    end
  end

  table.sort(names)
  local lines = { string.format("%-28s %8s %10s %10s %10s %10s", "exchange", "count", "unanswered", "min ms", "mean ms", "max ms") }
  for _, name in ipairs(names) do
    local row = rows[name]
    local times = row.answered > 0
      and string.format("%10.3f %10.3f %10.3f", row.least, row.sum / row.answered, row.most) or ""
    lines[#lines + 1] = string.format("%-28s %8d %10d %s", name, row.count, row.count - row.answered, times)
  end
  return table.concat(lines, "\n")
end

if gui_enabled() then
  register_menu("VeltraIO/Exchanges", function()
    TextWindow.new("VeltraIO exchanges"):set(exchanges_text())
  end, MENU_STAT_UNSORTED)
elseif ({ ... })[1] == "exchanges" then -- tshark -X lua_script1:exchanges
  local tap = Listener.new("frame", "veltraio")
  function tap.packet() end
  function tap.draw() print(exchanges_text()) end
end
