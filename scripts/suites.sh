# Sourced by the test scripts: named groups of CTest tests, as regular expressions for -R/-E.

# The end-to-end tests on segments of twenty controllers (a plan of twenty, discovery of twenty,
# a lossy segment): they test lcf's pacing over many daemons, need the whole machine for it,
# and wait minutes. The plain build runs them on an otherwise idle machine; the sanitizer stage
# leaves them out (they reach no code that the smaller tests there do not).
LCFD_SCALE_TESTS='^e2e\.(Commissioning\.APlanOfTwenty|Commissioning\.DiscoveryWithDefaultsFindsEveryControllerOfALossySegment|LcfTool\.DiscoversTwenty)'
