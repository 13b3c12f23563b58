# The dissector predicts the trace verdict of a real daemon for a corpus of requests.
