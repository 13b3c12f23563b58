# tshark decodes the captures in captures/ and compares its fields with expected/.
#
# Each test runs tshark with tools/wireshark/lcf.lua on one capture: the committed recordings
# of the sandbox, or a capture built by text2pcap from a text source in sources/. The output
# of `tshark -T fields` must equal the expected file byte for byte, and neither stream may
# show a Lua error. The tests need neither root nor namespaces; they are skipped (77) only
# where tshark or text2pcap is not installed. To see what a source decodes to now, run
# tshark_test.py without --expected.
find_package(Python3 REQUIRED COMPONENTS Interpreter)

set(LCF_WS_DIR ${CMAKE_CURRENT_SOURCE_DIR})
set(LCF_WS_DRIVER ${Python3_EXECUTABLE} ${LCF_WS_DIR}/tshark_test.py
    --lua ${PROJECT_SOURCE_DIR}/tools/wireshark/lcf.lua)

# lcf_dissector_test(NAME EXPECTED args...): compares with expected/EXPECTED.txt
function(lcf_dissector_test name expected)
  if(expected)
    set(compare --expected ${LCF_WS_DIR}/expected/${expected}.txt)
  endif()
  add_test(NAME wireshark.dissector.${name} COMMAND ${LCF_WS_DRIVER} ${ARGN} ${compare})
  set_tests_properties(wireshark.dissector.${name} PROPERTIES
    LABELS wireshark SKIP_RETURN_CODE 77 TIMEOUT 60)
endfunction()

# Recorded in the sandbox (record-captures.sh): discovery, an addressed QUERY, ASSIGN and
# CLEAR accepted and refused with their ACKs, and a STATUS sent as a raw frame from a
# controller whose interface is eth0. One tshark run over all of them.
set(captures discovery query-addressed assign-accepted assign-refused clear-accepted
    clear-refused raw-frame-replies)
set(capture_args)
foreach(capture IN LISTS captures)
  list(APPEND capture_args --pcap ${LCF_WS_DIR}/captures/${capture}.pcap)
endforeach()
lcf_dissector_test(sandbox-captures sandbox-captures ${capture_args})

# Built from text: every request and reply form, and every malformed kind. One tshark run.
set(sources)
foreach(source requests replies malformed)
  list(APPEND sources --source ${LCF_WS_DIR}/sources/${source}.txt)
endforeach()
lcf_dissector_test(text-sources text-sources ${sources})

# The prediction for one given controller: requests naming another MAC are ignored.
lcf_dissector_test(device-mac device-mac ${sources} --fields verdict
                   -o lcf.device_mac:02:4C:43:00:00:01)

# On another port only the heuristic claims datagrams, and only those that look like ours.
lcf_dissector_test(heuristic heuristic --source ${LCF_WS_DIR}/sources/heuristic.txt
                   --port 9999 --fields heuristic)

# Mutated and random datagrams (fixed seed): every one decoded, no Lua error.
lcf_dissector_test(robustness "" --random 600 --seed 7217)

# The same datagrams through the dissector outside Wireshark, under plain Lua 5.2 (Wireshark
# 4.0) and Lua 5.4 (later releases), must give what tshark gave. Skipped where the
# interpreter is not installed.
foreach(lua lua5.2 lua5.4)
  lcf_dissector_test(${lua} "" --mock ${lua} ${sources} --random 300 --seed 5
                     -o lcf.device_mac:02:4C:43:00:00:01)
endforeach()
