class Agent:
    def start(self): pass
    def stop(self): pass
