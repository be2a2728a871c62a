# The parts of the pages that `vesk report` makes, as one source: the files of cli/page/web and, for
# the large chart, the chart library dygraphs. Sets page_assets to that source.
option(VESK_WITH_CHARTS "Put the chart library dygraphs into the pages of vesk report" ON)
set(chart_library "")
set(chart_style "")
set(chart_notice "")
if(VESK_WITH_CHARTS)
  # Neither depends on the machine that is built for.
  find_file(VESK_DYGRAPHS_SCRIPT dygraph.min.js PATHS /usr/share/javascript/dygraphs
    NO_DEFAULT_PATH NO_CMAKE_FIND_ROOT_PATH)
  find_file(VESK_DYGRAPHS_STYLE dygraph.css PATHS /usr/share/javascript/dygraphs
    NO_DEFAULT_PATH NO_CMAKE_FIND_ROOT_PATH)
  find_file(VESK_DYGRAPHS_NOTICE copyright PATHS /usr/share/doc/libjs-dygraphs
    NO_DEFAULT_PATH NO_CMAKE_FIND_ROOT_PATH)
  if(NOT VESK_DYGRAPHS_SCRIPT OR NOT VESK_DYGRAPHS_STYLE OR NOT VESK_DYGRAPHS_NOTICE)
    message(FATAL_ERROR "The chart library dygraphs and its licence are not there: install "
      "libjs-dygraphs (2.2), or name its files by VESK_DYGRAPHS_SCRIPT, VESK_DYGRAPHS_STYLE and "
      "VESK_DYGRAPHS_NOTICE, or configure with -DVESK_WITH_CHARTS=OFF: then the pages of "
      "`vesk report` have small charts only.")
  endif()
  set(chart_library "${VESK_DYGRAPHS_SCRIPT}")
  set(chart_style "${VESK_DYGRAPHS_STYLE}|")
  set(chart_notice "${VESK_DYGRAPHS_NOTICE}")
endif()
set(page_assets "${CMAKE_CURRENT_BINARY_DIR}/page_assets.cpp")
set(web "${PROJECT_SOURCE_DIR}/cli/page/web")
set(page_styles "${web}/report.css" "${web}/findings.css" "${web}/charts.css" "${web}/media.css")
set(page_scripts "${web}/data.js" "${web}/scale.js" "${web}/small_chart.js" "${web}/large_chart.js"
  "${web}/time_line.js" "${web}/table.js" "${web}/live.js"
  "${web}/report.js")
string(REPLACE ";" "|" joined_styles "${page_styles}")
string(REPLACE ";" "|" joined_scripts "${page_scripts}")
add_custom_command(OUTPUT "${page_assets}"
  COMMAND "${CMAKE_COMMAND}" "-DOUT=${page_assets}" "-DFRAME=${web}/report.html"
    "-DSTYLES=${chart_style}${joined_styles}" "-DSCRIPTS=${joined_scripts}"
    "-DLIBRARY=${chart_library}" "-DNOTICE=${chart_notice}"
    -P "${PROJECT_SOURCE_DIR}/cmake/embed_page.cmake"
  DEPENDS "${PROJECT_SOURCE_DIR}/cmake/embed_page.cmake" "${web}/report.html"
    ${page_styles} ${page_scripts} ${chart_library} ${chart_notice}
  COMMENT "Putting the parts of a page together"
  VERBATIM)
