-- Runs the examples of one documentation page, so the docs cannot drift from what the code does.
--   zor-run run_docs.lua ZOR_RUN SOURCE_TREE SCRATCH PAGE.md
-- ```lua blocks run as scripts of their own (from SCRATCH, where examples/ points into the source
-- tree) and must end with status 0; a block whose first line is "-- excerpt" is only compiled.
-- ```filter blocks are filter scripts and must compile in the advanced packet filter.
local program, tree, scratch, page = arg[1], arg[2], arg[3], arg[4]
assert(page, "usage: run_docs.lua ZOR_RUN SOURCE_TREE SCRATCH PAGE.md")

local function shell_quote(text)
    return "'" .. text:gsub("'", "'\\''") .. "'"
end

os.execute("mkdir -p " .. shell_quote(scratch) .. " && ln -sfn " ..
           shell_quote(tree .. "/examples") .. " " .. shell_quote(scratch .. "/examples"))

-- The fenced blocks of the page: { kind, first line number, text }.
local blocks, current = {}, nil
local number = 0
for line in io.lines(page) do
    number = number + 1
    local fence = line:match("^```(%w*)%s*$")
    if fence and not current then
        current = { kind = fence, line = number + 1, lines = {} }
    elseif fence then
        current.text = table.concat(current.lines, "\n") .. "\n"
        blocks[#blocks + 1] = current
        current = nil
    elseif current then
        current.lines[#current.lines + 1] = line
    end
end
assert(not current, page .. ": a code block is not closed")

local failures, ran = {}, 0
for _, block in ipairs(blocks) do
    local where = page:match("[^/]*$") .. ":" .. block.line
    if block.kind == "lua" then
        ran = ran + 1
        local chunk, syntax = load(block.text, "=" .. where)
        if not chunk then
            failures[#failures + 1] = syntax
        elseif not block.text:match("^%-%- excerpt") then
            local file = scratch .. "/block_" .. block.line .. ".lua"
            local f = assert(io.open(file, "w"))
            f:write(block.text)
            f:close()
            local pipe = io.popen("cd " .. shell_quote(scratch) .. " && " .. shell_quote(program) ..
                                  " " .. shell_quote(file) .. " 2>&1; echo \"status=$?\"")
            local output = pipe:read("a")
            pipe:close()
            if not output:match("status=0%s*$") then
                failures[#failures + 1] = where .. ": the example failed:\n" .. output
            end
        end
    elseif block.kind == "filter" then
        ran = ran + 1
        local apf = zor.CreateAdvancedPacketFilter{}
        local ok, err = pcall(function() apf.filter = block.text end)
        if not ok then
            failures[#failures + 1] = where .. ": the filter script does not compile: " .. err
        end
    end
end
if #failures > 0 then
    error(table.concat(failures, "\n"), 0)
end
print(string.format("%s: %d examples ran", page:match("[^/]*$"), ran))
