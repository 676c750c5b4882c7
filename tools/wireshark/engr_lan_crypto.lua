-- AES-128, MD5 and CRC-32 for the dissector: Wireshark 4.0 offers its Lua none of them.
local band, bor, bxor, bnot = bit32.band, bit32.bor, bit32.bxor, bit32.bnot
local lshift, rshift, lrotate, rrotate = bit32.lshift, bit32.rshift, bit32.lrotate, bit32.rrotate
local crypto = {}

local crc_table = {}
for byte = 0, 255 do
    local value = byte
    for _ = 1, 8 do
        value = bxor(rshift(value, 1), band(value, 1) * 0xEDB88320)
    end
    crc_table[byte] = value
end

-- CRC-32 of IEEE 802.3.
function crypto.crc32(bytes)
    local crc = 0xFFFFFFFF
    for at = 1, #bytes do
        crc = bxor(rshift(crc, 8), crc_table[band(bxor(crc, bytes:byte(at)), 0xFF)])
    end
    return bnot(crc)
end

local md5_shifts = {{7, 12, 17, 22}, {5, 9, 14, 20}, {4, 11, 16, 23}, {6, 10, 15, 21}}

local function md5_step(step, b, c, d)
    if step < 16 then
        return bor(band(b, c), band(bnot(b), d)), step
    elseif step < 32 then
        return bor(band(d, b), band(bnot(d), c)), (5 * step + 1) % 16
    elseif step < 48 then
        return bxor(b, c, d), (3 * step + 5) % 16
    end
    return bxor(c, bor(b, bnot(d))), (7 * step) % 16
end

-- MD5 of at most 55 bytes, as 16 bytes.
function crypto.md5(text)
    local bits = #text * 8
    local block = text .. "\128" .. ("\0"):rep(55 - #text) .. string.char(band(bits, 0xFF), rshift(bits, 8)) ..
        ("\0"):rep(6)
    local start = {0x67452301, 0xEFCDAB89, 0x98BADCFE, 0x10325476}
    local a, b, c, d = table.unpack(start)
    for step = 0, 63 do
        local mixed, index = md5_step(step, b, c, d)
        local b0, b1, b2, b3 = block:byte(index * 4 + 1, index * 4 + 4)
        local word = bor(b0, lshift(b1, 8), lshift(b2, 16), lshift(b3, 24))
        local constant = math.floor(math.abs(math.sin(step + 1)) * 4294967296)
        local sum = band(a + mixed + word + constant, 0xFFFFFFFF)
        local shift = md5_shifts[math.floor(step / 16) + 1][step % 4 + 1]
        a, b, c, d = d, band(b + lrotate(sum, shift), 0xFFFFFFFF), b, c
    end
    local digest = ""
    for index, value in ipairs({a, b, c, d}) do
        value = band(value + start[index], 0xFFFFFFFF)
        digest = digest .. string.char(band(value, 0xFF), band(rshift(value, 8), 0xFF), band(rshift(value, 16), 0xFF),
            rshift(value, 24))
    end
    return digest
end

-- Product in the field of AES.
local function multiply(left, right)
    local product = 0
    while right > 0 do
        if band(right, 1) == 1 then
            product = bxor(product, left)
        end
        left = left < 128 and left * 2 or bxor(left * 2, 0x11B)
        right = rshift(right, 1)
    end
    return product
end

-- The substitution, its inverse, and the latter with the inverse mixing of a column, by the byte of the first row.
local substitute, restore, unmix = {}, {}, {}
do
    local power, inverse = 1, 1
    repeat -- 3 generates the field, and 0xF6 is its inverse
        local turned = bxor(inverse, inverse * 2, inverse * 4, inverse * 8, inverse * 16)
        substitute[power] = bxor(band(bxor(turned, rshift(turned, 8)), 0xFF), 0x63)
        power, inverse = multiply(power, 3), multiply(inverse, 0xF6)
    until power == 1
    substitute[0] = 0x63
    for byte = 0, 255 do
        restore[substitute[byte]] = byte
    end
    for byte = 0, 255 do
        unmix[byte] = bor(lshift(multiply(byte, 14), 24), lshift(multiply(byte, 9), 16), lshift(multiply(byte, 13), 8),
            multiply(byte, 11))
    end
end

local function bytes_of(word)
    return rshift(word, 24), band(rshift(word, 16), 0xFF), band(rshift(word, 8), 0xFF), band(word, 0xFF)
end

local function unmix_column(b0, b1, b2, b3)
    return bxor(unmix[b0], rrotate(unmix[b1], 8), rrotate(unmix[b2], 16), rrotate(unmix[b3], 24))
end

-- Schedule for crypto.decrypt_block, of a key of 16 bytes.
function crypto.aes_schedule(key)
    local words = {}
    for index = 0, 3 do
        local b0, b1, b2, b3 = key:byte(index * 4 + 1, index * 4 + 4)
        words[index] = bor(lshift(b0, 24), lshift(b1, 16), lshift(b2, 8), b3)
    end
    local round = 1
    for index = 4, 43 do
        local word = words[index - 1]
        if index % 4 == 0 then
            local b0, b1, b2, b3 = bytes_of(lrotate(word, 8))
            word = bor(lshift(bxor(substitute[b0], round), 24), lshift(substitute[b1], 16), lshift(substitute[b2], 8),
                substitute[b3])
            round = multiply(round, 2)
        end
        words[index] = bxor(words[index - 4], word)
    end
    for index = 4, 39 do
        words[index] = unmix_column(bytes_of(words[index]))
    end
    return words
end

-- Decrypts the 16 bytes that begin at a position.
function crypto.decrypt_block(words, cipher, at)
    local bytes, state = {cipher:byte(at, at + 15)}, {}
    for column = 0, 3 do
        local b0, b1, b2, b3 = table.unpack(bytes, column * 4 + 1, column * 4 + 4)
        state[column] = bxor(bor(lshift(b0, 24), lshift(b1, 16), lshift(b2, 8), b3), words[40 + column])
    end
    for round = 9, 0, -1 do
        local next_state = {}
        for column = 0, 3 do -- row n comes from n columns to the left
            local b0, b1 = rshift(state[column], 24), band(rshift(state[(column + 3) % 4], 16), 0xFF)
            local b2, b3 = band(rshift(state[(column + 2) % 4], 8), 0xFF), band(state[(column + 1) % 4], 0xFF)
            b0, b1, b2, b3 = restore[b0], restore[b1], restore[b2], restore[b3]
            local word = round > 0 and unmix_column(b0, b1, b2, b3)
                or bor(lshift(b0, 24), lshift(b1, 16), lshift(b2, 8), b3)
            next_state[column] = bxor(word, words[round * 4 + column])
        end
        state = next_state
    end
    local plain = {}
    for column = 0, 3 do
        plain[column + 1] = string.char(bytes_of(state[column]))
    end
    return table.concat(plain)
end

-- Text without its padding, of what was encrypted in ECB mode; nil when the padding shows that the key is wrong.
function crypto.decrypt(words, cipher)
    if #cipher == 0 or #cipher % 16 ~= 0 then
        return nil
    end
    local padding = crypto.decrypt_block(words, cipher, #cipher - 15):byte(16)
    if padding < 1 or padding > 16 then
        return nil
    end
    local blocks = {}
    for at = 1, #cipher, 16 do
        blocks[#blocks + 1] = crypto.decrypt_block(words, cipher, at)
    end
    local plain = table.concat(blocks)
    if plain:sub(-padding) ~= string.char(padding):rep(padding) then
        return nil
    end
    return plain:sub(1, -padding - 1)
end

return crypto
