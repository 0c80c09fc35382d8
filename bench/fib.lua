-- Recursive Fibonacci, the same algorithm as fib.tvs.
-- Usage: lua5.4 fib.lua N. Prints fib(N) and exits with fib(N) mod 251.
local function fib(n)
  if n < 2 then return n end
  return fib(n - 1) + fib(n - 2)
end

local n = assert(math.tointeger(tonumber(arg[1])), "usage: fib.lua N")
local r = fib(n)
print(r)
os.exit(r % 251)
