-- Takeuchi's function, the same algorithm as tak.tvs.
-- Usage: lua5.4 tak.lua X Y Z. Prints tak(X, Y, Z) and exits with it mod 251.
local function tak(x, y, z)
  if not (y < x) then return z end
  return tak(tak(x - 1, y, z), tak(y - 1, z, x), tak(z - 1, x, y))
end

local x, y, z = math.tointeger(tonumber(arg[1])), math.tointeger(tonumber(arg[2])), math.tointeger(tonumber(arg[3]))
assert(x and y and z, "usage: tak.lua X Y Z")
local r = tak(x, y, z)
print(r)
os.exit(r % 251)
