Feature: What a failure looks like

  Scenario: a ring that nobody asked for
    Given a panel with the process "doorbell"
    When partition FULL is armed
    Then a message is sent to "Multicast/DOORBELL" within 1 second
