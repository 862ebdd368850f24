-- Shows in Wireshark and tshark (4.0 and later) the vCards in short messages to application port 9204, GSM's
-- (3GPP TS 23.040) and CDMA's (3GPP2 C.S0015): who is on a card, its properties, and which datagrams it came in.
--
--   tshark -X lua_script:zpd-cards.lua -r air.pcapng
--
-- or put it into the folder of personal Lua plugins, which Wireshark names in Help, About, Folders.
--
-- A card's parts are told by phone, direction, other number, reference and count. The dissector of GSM's messages goes
-- by less, and takes parts from two phones with one reference for the same message; so nothing here relies on what it
-- has put together. A phone is an interface of the capture, named by its number.

local port = 9204
local phone_number = "^%+?%d+$"

local vcard = Proto("vcard", "vCard in short messages")
local fields = {
    name = ProtoField.string("vcard.name", "Name"),
    version = ProtoField.string("vcard.version", "Version"),
    property = ProtoField.string("vcard.property", "Property"),
    length = ProtoField.uint32("vcard.length", "Octets"),
    reference = ProtoField.uint16("vcard.reference", "Reference"),
    part = ProtoField.uint8("vcard.part", "Part"),
    parts = ProtoField.uint8("vcard.parts", "Parts"),
    seen = ProtoField.uint8("vcard.seen", "Parts seen"),
    again = ProtoField.bool("vcard.again", "Seen before"),
    whole_in = ProtoField.framenum("vcard.whole_in", "Whole in"),
    part_in = ProtoField.framenum("vcard.part_in", "Part in"),
}
vcard.fields = fields
local no_vcard = ProtoExpert.new("vcard.none", "What came to the port is no vCard", expert.group.PROTOCOL, expert.severity.WARN)
vcard.experts = { no_vcard }

local seen = {
    phone = Field.new("frame.interface_name"),
    tpdu = Field.new("gsm_sms"),
    originating = Field.new("gsm_sms.tp-oa"),
    destination = Field.new("gsm_sms.tp-da"),
    coding = Field.new("gsm_sms.tp-dcs"),
    length = Field.new("gsm_sms.tp.user_data_length"),
    header_length = Field.new("gsm_sms.dis_field_udh.user_data_header_length"),
    port = Field.new("gsm_sms.destination_port"),
    reference = Field.new("gsm_sms.udh.mm.msg_id"),
    parts = Field.new("gsm_sms.udh.mm.msg_parts"),
    part = Field.new("gsm_sms.udh.mm.msg_part"),
    cdma_number = Field.new("ansi_637_trans.addr_param.number"),
    cdma_type = Field.new("ansi_637_tele.msg_type"),
    cdma_encoding = Field.new("ansi_637_tele.user_data.encoding"),
    cdma_data = Field.new("ansi_637_tele.user_data.text"),
}

local function value_of(field)
    local info = field()
    return info and info.value
end

-- Text for people, on one line: what is no UTF-8, and controls, become U+FFFD.
local function legible(text)
    text = text:gsub("[\t\r\n]+", " ")
    local pieces, at = {}, 1
    while at <= #text do
        local character = text:match("^[\32-\126]+", at) or text:match("^[\194-\223][\128-\191]", at) or
            text:match("^[\224-\239][\128-\191][\128-\191]", at) or text:match("^[\240-\244][\128-\191][\128-\191][\128-\191]", at)
        pieces[#pieces + 1] = character or "\239\191\189"
        at = at + (character and #character or 1)
    end
    return table.concat(pieces)
end

-- The default alphabet of 3GPP TS 23.038 6.2.1 and 6.2.1.1.
local alphabet, extension = {}, {
    [10] = "\f", [20] = "^", [40] = "{", [41] = "}", [47] = "\\", [60] = "[", [61] = "~", [62] = "]", [64] = "|", [101] = "€",
}
for character in ("@£$¥èéùìòÇ\nØø\rÅåΔ_ΦΓΛΩΠΨΣΘΞ\27ÆæßÉ !\"#¤%&'()*+,-./0123456789:;<=>?" ..
    "¡ABCDEFGHIJKLMNOPQRSTUVWXYZÄÖÑÜ§¿abcdefghijklmnopqrstuvwxyzäöñüà"):gmatch("[%z\1-\127\194-\244][\128-\191]*") do
    alphabet[#alphabet + 1] = character
end

-- Septets first to last - 1 of the octets, which begin with septet 0.
local function text_of_septets(octets, first, last)
    local pieces, escaped = {}, false
    for i = first, last - 1 do
        local bit = 7 * i
        local at = math.floor(bit / 8) + 1
        local two = (octets:byte(at) or 0) + 256 * (octets:byte(at + 1) or 0)
        local septet = math.floor(two / 2 ^ (bit % 8)) % 128
        if escaped then
            pieces[#pieces + 1] = extension[septet] or alphabet[septet + 1]
            escaped = false
        elseif septet == 27 then
            escaped = true
        else
            pieces[#pieces + 1] = alphabet[septet + 1]
        end
    end
    return table.concat(pieces)
end

-- What follows the header of a TPDU's user data; nothing of one that is cut short.
local function gsm_octets()
    local tpdu, length, header_length, coding = seen.tpdu(), seen.length(), value_of(seen.header_length), value_of(seen.coding)
    if not (tpdu and length and header_length and coding) then
        return nil
    end
    local septets = coding < 0x40 and bit32.band(coding, 0x0C) == 0 or bit32.band(coding, 0xF4) == 0xF0
    local from = length.offset + 1 - tpdu.offset
    local size = septets and math.ceil(length.value * 7 / 8) or length.value
    if from < 0 or size < header_length + 1 or tpdu.range:len() < from + size then
        return nil
    end
    local octets = tpdu.range(from, size):raw()
    if septets then
        return text_of_septets(octets, math.ceil((header_length + 1) * 8 / 7), length.value)
    end
    return octets:sub(header_length + 2)
end

local function cdma_octets()
    local data = seen.cdma_data()
    return data and value_of(seen.cdma_encoding) == 0 and data.range:raw() or nil
end

-- From whom, to whom, and by what to tell this message's parts from others'. The phone's end is its interface.
local function ends_of_message()
    local phone = (value_of(seen.phone) or ""):gsub("^%+", "")
    local from, to = value_of(seen.originating), value_of(seen.destination)
    local cdma = value_of(seen.cdma_number)
    if cdma and value_of(seen.cdma_type) == 1 then
        from = cdma
    elseif cdma and value_of(seen.cdma_type) == 2 then
        to = cdma
    end
    if from then
        return from, phone, phone .. "<" .. from
    elseif to then
        return phone, to, phone .. ">" .. to
    end
end

-- The cards by what tells their parts, and what became of each frame when it was first looked at.
local cards, frames

function vcard.init()
    cards, frames = {}, {}
end

local function put_together(card, frame)
    local octets = {}
    for i = 1, card.count do
        octets[i] = card.parts[i].octets
    end
    card.octets = table.concat(octets)
    card.whole_in = frame
end

-- Other octets under a number that is taken begin another card: references come round.
local function add_part(key, count, number, octets, frame)
    local card = cards[key]
    local known = card and card.parts[number]
    if not card or (known and known.octets ~= octets) then
        card, known = { count = count, seen = 0, parts = {} }, nil
        cards[key] = card
    end
    if not known then
        card.parts[number] = { octets = octets, frame = frame }
        card.seen = card.seen + 1
        if card.seen == count then
            put_together(card, frame)
        end
    end
    return { card = card, number = number, again = known ~= nil }
end

-- A header whose parts cannot be counted is as if it were not there (3GPP TS 23.040 9.2.3.24.1).
local function look_at(frame, octets, peers)
    local reference, count, number = value_of(seen.reference), value_of(seen.parts), value_of(seen.part)
    if not (reference and count and number) or number == 0 or number > count then
        local card = { count = 1, seen = 1, parts = { { octets = octets, frame = frame } } }
        put_together(card, frame)
        return { card = card, number = 1, again = false }
    end
    local place = add_part(table.concat({ peers, reference, count }, " "), count, number, octets, frame)
    place.reference = reference
    return place
end

-- Lines as they were before they were folded. A quoted-printable one goes on after a "=" at its end; of vCard 2.1 the
-- white space of a fold belongs to the text.
local function unfolded(text)
    local lines, soft = {}, false
    local keeps_space = text:upper():match("\nVERSION:2%.1%s") ~= nil
    for line in (text:gsub("\r\n?", "\n") .. "\n"):gmatch("(.-)\n") do
        local last = lines[#lines]
        if soft then
            lines[#lines] = last:sub(1, -2) .. line
        elseif last and line:match("^[ \t]") then
            lines[#lines] = last .. (keeps_space and not last:sub(1, 80):upper():match("BASE64") and line or line:sub(2))
        elseif line ~= "" then
            lines[#lines + 1] = line
        end
        last = lines[#lines]
        soft = last ~= nil and last:sub(-1) == "=" and last:upper():match("^[^:]*QUOTED%-PRINTABLE[^:]*:") ~= nil
    end
    return lines
end

-- ISO 8859-1, of an old card that says so.
local function from_latin(text)
    return (text:gsub("[\128-\255]", function(octet)
        local code = octet:byte()
        return string.char(0xC0 + math.floor(code / 64), 0x80 + code % 64)
    end))
end

-- NAME, upper case and without group and parameters, and VALUE, decoded, of "group.NAME;PARAMETERS:VALUE".
local function property_of(line)
    local head, value = line:match("^([^:]*):(.*)$")
    if not head then
        return nil
    end
    head = head:upper()
    if head:match("QUOTED%-PRINTABLE") then
        value = value:gsub("=(%x%x)", function(digits) return string.char(tonumber(digits, 16)) end)
    end
    if head:match("CHARSET=\"?ISO%-8859%-1") then
        value = from_latin(value)
    end
    return head:match("^([^;]*)"):match("([^.]*)$"), value
end

local function text_of(value)
    return (value:gsub("\\(.)", function(character) return character:lower() == "n" and " " or character end))
end

-- N is family name; given name; further ones (RFC 6350 6.2.2).
local function name_of_n(value)
    local hidden = value:gsub("\\\\", "\1"):gsub("\\;", "\2")
    local family, given = (hidden .. ";"):match("^([^;]*);([^;]*)")
    local function shown(part) return text_of((part:gsub("\2", ";"):gsub("\1", "\\\\"))) end
    return (shown(given) .. " " .. shown(family)):match("^%s*(.-)%s*$")
end

local function read_card(octets)
    if not octets:upper():match("^[%s\239\187\191]*BEGIN:VCARD%s") then
        return nil
    end
    local contact = { lines = unfolded(octets) }
    local formatted, structured
    for i, line in ipairs(contact.lines) do
        local name, value = property_of(line)
        if name == "FN" then
            formatted = formatted or text_of(value)
        elseif name == "N" then
            structured = structured or name_of_n(value)
        elseif name == "VERSION" then
            contact.version = contact.version or value
        end
        contact.lines[i] = legible(name and line:match("^[^:]*:") .. value or line)
    end
    contact.name = legible((formatted and formatted ~= "" and formatted) or structured or "")
    return contact
end

local function show_part(tree, place)
    local card = place.card
    if place.reference then
        tree:add(fields.reference, place.reference)
        tree:add(fields.part, place.number)
        tree:add(fields.parts, card.count)
        tree:add(fields.seen, card.seen):set_generated()
    end
    if place.again then
        tree:add(fields.again, true):set_generated()
    end
    if card.whole_in then
        tree:add(fields.whole_in, card.whole_in):set_generated()
    end
end

local function show_card(tree, card)
    local contact = card.contact
    tree:add(fields.length, #card.octets):set_generated()
    if card.count > 1 then
        for i = 1, card.count do
            tree:add(fields.part_in, card.parts[i].frame):set_generated()
        end
    end
    if not contact then
        tree:add_proto_expert_info(no_vcard)
        return
    end
    -- The octets of the whole card, beside those of the message.
    local octets = ByteArray.new(card.octets, true):tvb("vCard")
    tree:add(fields.name, octets(), contact.name)
    if contact.version then
        tree:add(fields.version, octets(), legible(contact.version))
    end
    for _, line in ipairs(contact.lines) do
        tree:add(fields.property, octets(), line)
    end
end

local function summary(place)
    local card = place.card
    local part = card.count > 1 and string.format("part %d of %d", place.number, card.count) or nil
    local again = place.again and ", again" or ""
    if not card.whole_in then
        return string.format("vCard, %s%s", part, again)
    end
    local what = string.format("No vCard: %d octets to port %d", #card.octets, port)
    if card.contact then
        what = card.contact.name == "" and "vCard without a name" or "vCard: " .. card.contact.name
    end
    return what .. (part and " (" .. part .. again .. ")" or "")
end

function vcard.dissector(_, packet, tree)
    local from, to, peers = ends_of_message()
    if not from then
        return
    end
    if value_of(seen.phone) and value_of(seen.phone):match(phone_number) then
        packet.cols.src, packet.cols.dst = from, to
    end
    if value_of(seen.port) ~= port then
        return
    end
    local place = frames[packet.number]
    if not place then
        local octets = gsm_octets() or cdma_octets()
        if not octets then
            return
        end
        place = look_at(packet.number, octets, peers)
        place.card.contact = place.card.whole_in and read_card(place.card.octets)
        frames[packet.number] = place
    end
    packet.cols.info = summary(place)
    local shown = tree:add(vcard, summary(place))
    show_part(shown, place)
    if place.card.whole_in == packet.number then
        show_card(shown, place.card)
    end
end

register_postdissector(vcard)
