unsigned sleep(unsigned seconds) { return seconds - seconds; }
