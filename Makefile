help:
	@echo later
