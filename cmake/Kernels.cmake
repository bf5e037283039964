# Compiles the GLSL kernels with glslc and embeds them as a table in the order in which they are listed.
find_program(GLSLC glslc REQUIRED)

# ombrelux_kernels(OUT_SOURCE FOLDER entry...): an entry is "name" or "name|source|define define...", where name is what
# the program asks for and source (without .comp) defaults to it.
function(ombrelux_kernels out folder)
  set(spv_dir ${CMAKE_CURRENT_BINARY_DIR}/kernels)
  file(MAKE_DIRECTORY ${spv_dir})
  set(includes "")
  set(table "")
  set(outputs "")
  set(index 0)
  foreach(entry IN LISTS ARGN)
    string(REPLACE "|" ";" parts "${entry}")
    list(GET parts 0 name)
    list(LENGTH parts n)
    set(source ${name})
    set(defines "")
    if(n GREATER 1)
      list(GET parts 1 source)
    endif()
    if(n GREATER 2)
      list(GET parts 2 words)
      separate_arguments(words)
      foreach(word IN LISTS words)
        list(APPEND defines -D${word})
      endforeach()
    endif()
    string(MAKE_C_IDENTIFIER ${name} id)
    set(input ${folder}/${source}.comp)
    set(output ${spv_dir}/${id}.inc)
    add_custom_command(
      OUTPUT ${output}
      COMMAND ${GLSLC} -O --target-env=vulkan1.1 -Werror -I ${folder}/include ${defines} -mfmt=num
              -MD -MF ${output}.d -MT ${output} -o ${output} ${input}
      DEPENDS ${input}
      DEPFILE ${output}.d
      COMMENT "Kernel ${name}"
      VERBATIM)
    list(APPEND outputs ${output})
    string(APPEND includes "constexpr uint32_t kWords${index}[] = {\n#include \"${output}\"\n};\n")
    string(APPEND table "    {\"${name}\", kWords${index}, sizeof(kWords${index})},\n")
    math(EXPR index "${index} + 1")
  endforeach()
  set(source ${CMAKE_CURRENT_BINARY_DIR}/embedded_kernels.cpp)
  file(CONFIGURE OUTPUT ${source} @ONLY CONTENT
"// Made by cmake/Kernels.cmake.
#include \"gpu/embedded_kernels.h\"

#include <cstdint>

namespace quor::gs {
namespace {
@includes@
constexpr EmbeddedKernel kTable[] = {
@table@};
}  // namespace

std::span<const EmbeddedKernel> embeddedKernels() { return kTable; }

}  // namespace quor::gs
")
  set_source_files_properties(${source} PROPERTIES OBJECT_DEPENDS "${outputs}")
  set(${out} ${source} PARENT_SCOPE)
endfunction()
