// placeholder until the scenario parser lands
