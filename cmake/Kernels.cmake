# Compiles GLSL kernels with glslc and embeds them as a table in the order in which they are listed.
find_program(GLSLC glslc REQUIRED)

# ombrelux_kernels(TARGET FUNCTION entry...): adds to TARGET a source that defines quor::gs::FUNCTION(), the table of the
# kernels of this folder. An entry is "path" or "name|path|define define...": `path` (without .comp) is relative to the
# current folder, `name` is what the program asks for and defaults to the file's. Kernels include from src/, as C++ does.
function(ombrelux_kernels target function)
  set(spv_dir ${CMAKE_CURRENT_BINARY_DIR}/kernels)
  file(MAKE_DIRECTORY ${spv_dir})
  set(includes "")
  set(table "")
  set(outputs "")
  set(index 0)
  foreach(entry IN LISTS ARGN)
    string(REPLACE "|" ";" parts "${entry}")
    list(LENGTH parts n)
    list(GET parts 0 name)
    set(path ${name})
    set(defines "")
    if(n GREATER 1)
      list(GET parts 1 path)
    else()
      get_filename_component(name ${path} NAME)
    endif()
    if(n GREATER 2)
      list(GET parts 2 words)
      separate_arguments(words)
      foreach(word IN LISTS words)
        list(APPEND defines -D${word})
      endforeach()
    endif()
    string(MAKE_C_IDENTIFIER ${name} id)
    set(input ${CMAKE_CURRENT_SOURCE_DIR}/${path}.comp)
    set(output ${spv_dir}/${id}.inc)
    add_custom_command(
      OUTPUT ${output}
      COMMAND ${GLSLC} -O --target-env=vulkan1.1 -Werror -I ${PROJECT_SOURCE_DIR}/src ${defines} -mfmt=num
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
  set(source ${CMAKE_CURRENT_BINARY_DIR}/${function}.cpp)
  file(CONFIGURE OUTPUT ${source} @ONLY CONTENT
"// Made by cmake/Kernels.cmake.
#include <cstdint>

#include \"gpu/compute/embedded_kernels.h\"

namespace quor::gs {
namespace {
@includes@
constexpr EmbeddedKernel kTable[] = {
@table@};
}  // namespace

std::span<const EmbeddedKernel> @function@() { return kTable; }

}  // namespace quor::gs
")
  set_source_files_properties(${source} PROPERTIES OBJECT_DEPENDS "${outputs}")
  target_sources(${target} PRIVATE ${source})
endfunction()
