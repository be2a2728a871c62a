# Lays down the manual page of the command and of each verb, and the completions of three shells.
# `command` writes them into the folder `written` first.
file(REMOVE_RECURSE "${written}")
file(MAKE_DIRECTORY "${written}")

function(write_help file)
  execute_process(COMMAND "${command}" help ${ARGN}
    OUTPUT_FILE "${written}/${file}" COMMAND_ERROR_IS_FATAL ANY)
endfunction()

write_help(vesk.1 --man)
# The main page lists the others.
file(STRINGS "${written}/vesk.1" others REGEX "^\\.BR vesk.*-")
foreach(line ${others})
  string(REGEX REPLACE "^\\.BR vesk[^a-z]*([a-z]+).*$" "\\1" verb "${line}")
  write_help("vesk-${verb}.1" --man "${verb}")
endforeach()
file(GLOB pages "${written}/*.1")

write_help(vesk --completion bash)
write_help(_vesk --completion zsh)
write_help(vesk.fish --completion fish)

# The prefix is that of this installation.
foreach(folder man_folder data_folder)
  cmake_path(ABSOLUTE_PATH ${folder} BASE_DIRECTORY "${CMAKE_INSTALL_PREFIX}")
endforeach()
file(INSTALL ${pages} DESTINATION "${man_folder}")
file(INSTALL "${written}/vesk" DESTINATION "${data_folder}/bash-completion/completions")
file(INSTALL "${written}/_vesk" DESTINATION "${data_folder}/zsh/vendor-completions")
file(INSTALL "${written}/vesk.fish" DESTINATION "${data_folder}/fish/vendor_completions.d")
