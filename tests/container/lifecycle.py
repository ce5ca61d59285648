"""The life of the daemon: stop, start, reboot and power-off."""
RUNNING = []
REBOOT = []
