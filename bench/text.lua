-- The work of text.tvs in Lua: format two numbers, measure the string, store
-- it and fill the same block of a 160x80 screen (no glyphs are drawn).
-- Usage: lua5.4 text.lua N. Prints the total length and exits with it mod 251.
local n = assert(math.tointeger(tonumber(arg[1])), "usage: text.lua N")
local screen, text = {}, ""
for i = 0, 160 * 80 - 1 do screen[i] = 0 end
local total = 0
for i = 0, n - 1 do
  local s = string.format("%d:%d ", i, i * 7)
  total = total + #s
  text = s
  for y = 20, 23 do
    local row = y * 160
    for x = 0, 15 + (i & 7) do screen[row + x] = 1 end
  end
end
print(total, #text + screen[23 * 160 + 15])
os.exit(total % 251)
