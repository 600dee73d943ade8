"""What the scenarios are written with: the appliance's paths, its log, the daemon, the agent,
the settings, the files and an independent model of what must be in them."""
