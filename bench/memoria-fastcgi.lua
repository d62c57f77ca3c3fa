-- wrk script of bench/memoria-fastcgi: sends, over and over, a fixed mix of
-- requests to /cgi-bin/orvex, checks every answer, and stops after a given
-- number of answers.
--
--   wrk -t1 -c1 -d600s -s bench/memoria-fastcgi.lua URL -- MIX ANSWERS [SKIP]
--
-- MIX is a file of one request a line, four fields separated by tabs:
--   name  method (GET or POST)  fields (URL-encoded)  text the page must hold
-- A GET carries the fields as its query string, a POST as a form body.
-- ANSWERS is how many answers end the run (0: run until -d ends).
-- SKIP lists the lines left out of the cycle, as numbers separated by commas.
--
-- An answer is right when its status is 200 and its body holds the line's
-- text; a text "estado:N" asks for status N instead, whatever the body. At the end the script prints one line per request of the mix:
--   mezcla<TAB>line<TAB>sent<TAB>answered<TAB>wrong<TAB>first wrong status
-- (one connection, -t1 -c1: the answers come in the order of the requests).

local ffi = require("ffi")
ffi.cdef [[
  int getpid(void);
  int kill(int pid, int sig);
]]
local mezcla = {}      -- { nombre, peticion, espera }, in the file's order
local ciclo = {}       -- the lines of the mix sent, in order
local total = 0
local posicion = 0     -- index in ciclo of the request last sent
local actual = nil     -- line of the mix of the request last sent
local respuestas = 0

-- Read back by done() through thread:get.
enviadas = {}
respondidas = {}
erroneas = {}
primer_estado = {}

local function separa(linea)
  local campos = {}
  for campo in (linea .. "\t"):gmatch("([^\t]*)\t") do campos[#campos + 1] = campo end
  return campos
end

function init(args)
  local archivo = assert(io.open(args[1], "r"), "no se puede leer la mezcla " .. tostring(args[1]))
  total = tonumber(args[2]) or 0
  local omitidas = {}
  for n in (args[3] or ""):gmatch("[0-9]+") do omitidas[tonumber(n)] = true end
  for linea in archivo:lines() do
    if linea ~= "" then
      local c = separa(linea)
      local peticion
      if c[2] == "POST" then
        peticion = wrk.format("POST", "/cgi-bin/orvex",
          { ["Content-Type"] = "application/x-www-form-urlencoded" }, c[3])
      else
        peticion = wrk.format("GET", "/cgi-bin/orvex?" .. c[3], {})
      end
      mezcla[#mezcla + 1] = { nombre = c[1], peticion = peticion, espera = c[4] }
      local k = #mezcla
      enviadas[k], respondidas[k], erroneas[k], primer_estado[k] = 0, 0, 0, 0
      if not omitidas[k] then ciclo[#ciclo + 1] = k end
    end
  end
  archivo:close()
  assert(#ciclo > 0, "la mezcla está vacía")
end

function request()
  posicion = posicion % #ciclo + 1
  actual = ciclo[posicion]
  enviadas[actual] = enviadas[actual] + 1
  return mezcla[actual].peticion
end

function response(status, headers, body)
  local k = actual
  respondidas[k] = respondidas[k] + 1
  local espera = mezcla[k].espera
  local estado = tonumber(espera:match("^estado:(%d+)$"))
  local mal
  if estado then
    mal = status ~= estado
  else
    mal = status ~= 200 or not body:find(espera, 1, true)
  end
  if mal then
    erroneas[k] = erroneas[k] + 1
    if primer_estado[k] == 0 then primer_estado[k] = status end
  end
  respuestas = respuestas + 1
  if total > 0 and respuestas >= total then
    -- The thread stops here, but wrk's main thread sleeps out the whole -d
    -- duration unless interrupted: a SIGINT (2) to the process ends that
    -- sleep the way Ctrl-C does, and wrk then reports.
    wrk.thread:stop()
    ffi.C.kill(ffi.C.getpid(), 2)
  end
end

local hilos = {}

function setup(thread)
  hilos[#hilos + 1] = thread
end

function done(summary, latency, requests)
  for _, hilo in ipairs(hilos) do
    local e, r, m, p = hilo:get("enviadas"), hilo:get("respondidas"),
                       hilo:get("erroneas"), hilo:get("primer_estado")
    for k = 1, #e do
      io.write(string.format("mezcla\t%d\t%d\t%d\t%d\t%d\n", k, e[k], r[k], m[k], p[k]))
    end
  end
end
