"""Jobs: records, the persistent store, change events and the background runner."""
