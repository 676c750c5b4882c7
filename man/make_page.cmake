# Joins a program's manual page: what it says itself, and the sections behind that.
execute_process(COMMAND "${PROGRAM}" __manual OUTPUT_VARIABLE begin COMMAND_ERROR_IS_FATAL ANY)
file(READ "${END}" end)
get_filename_component(name "${PAGE}" NAME_WE)
string(TOUPPER "${name}" title)
file(WRITE "${PAGE}" ".Dd ${DATE}\n.Dt ${title} 1\n.Os\n${begin}${end}")
