# Installation.
