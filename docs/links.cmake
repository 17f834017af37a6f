# Fails where a page (Markdown or HTML) links to a file, or shows a picture, that is not there, and
# where Doxygen has given up on a page and shows its own commands.
#
#     cmake -D PAGES='FOLDER/*.md;...' -P links.cmake

cmake_minimum_required(VERSION 3.25)

set(pages "")
foreach(pattern ${PAGES})
  if(EXISTS ${pattern}) # a page, and not all of its name below its folder
    list(APPEND pages ${pattern})
  else()
    file(GLOB_RECURSE found ${pattern})
    list(APPEND pages ${found})
  endif()
endforeach()
set(links 0)
foreach(page ${pages})
  cmake_path(GET page PARENT_PATH folder)
  file(READ ${page} text)
  if(NOT page MATCHES "md$" AND text MATCHES "[\n\"]@(section|endcode|ref|image) |.ilinebr")
    message(SEND_ERROR "${page}: shows commands: a link over two lines, or to what is not there, or an apostrophe before a backtick?")
  endif()
  string(REPLACE "](" "link=\"" text "${text}")
  string(REGEX REPLACE "[][;]" " " text "${text}") # which mean something in lists
  string(REGEX MATCHALL "(link|href|src|data)=\"[^\"#:) ]+[\")#]" found "${text}")
  list(REMOVE_DUPLICATES found)
  foreach(link ${found})
    string(REGEX REPLACE "^[a-z]+=\"(.*).$" "\\1" link ${link})
    if(NOT link MATCHES "^(https?|data|javascript|mailto)$" AND NOT EXISTS ${folder}/${link})
      message(SEND_ERROR "${page}: ${link} is not there")
    endif()
    math(EXPR links "${links} + 1")
  endforeach()
endforeach()
message(STATUS "${links} links lead somewhere")
