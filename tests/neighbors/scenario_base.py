"""What a scenario says: how its daemons are started on both sides, and whether the neighbor believes in near."""


class Scenario:
    # For the table: the protocol, which daemon and who its neighbor is, and what is to be known.
    title = ""
    between = ""
    remark = ""
    # The protocols whose goodbyes valend must have learned.
    protocols = set()
    # More lines of valend's configuration.
    config = ""
    # So many more interfaces has valend.
    more_interfaces = 0
    # Whether the bridge listens to group memberships, and asks for them.
    snooping = False
    # Whether the greeting alone brings the neighbor back after an abort.
    greeting_heals = True
    # How many seconds the neighbor may take until it believes.
    longest = 60.0

    def start(self, near, far):
        """Starts the daemons."""
        raise NotImplementedError

    def believes(self):
        """Whether the neighbor takes near for a member of the network."""
        raise NotImplementedError

    def play(self, rounds):
        """Shutdowns to their end, and aborted ones, in turns."""
        for _ in range(rounds.count):
            rounds.shutdown()
            rounds.abort()
        if self.greeting_heals:
            rounds.expect_greetings()
