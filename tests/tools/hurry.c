// Loaded before a command: its sleep() takes no time.
unsigned sleep(unsigned seconds)
{
    return seconds - seconds;
}
