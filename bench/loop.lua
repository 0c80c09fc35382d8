-- The counted loop of loop.tvs: total += i * step for i = 0 .. n-1.
-- Usage: lua5.4 loop.lua N STEP. Prints total modulo 2^32 and exits with
-- (total & 0x7FFFFFFF) mod 251. Lua integers are 64 bits wide and the sum
-- stays far below 2^63, so reducing once at the end gives the 32-bit result.
local n = assert(math.tointeger(tonumber(arg[1])), "usage: loop.lua N STEP")
local step = assert(math.tointeger(tonumber(arg[2])), "usage: loop.lua N STEP")

local total = 0
local i = 0
while i < n do
  total = total + i * step
  i = i + 1
end
total = total & 0xFFFFFFFF
print(total)
os.exit((total & 0x7FFFFFFF) % 251)
